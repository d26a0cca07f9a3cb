#pragma once

#include <memory>

#include "zarvo/media/model/MediaEngine.h"

namespace zarvo {

// The engine the product runs: playbin3 (with hlsdemux2) on GLib's default main context,
// loading everything through the loopback ResourceServer.
class GstMediaEngine : public MediaEngine {
public:
    std::unique_ptr<PlayerEngine> makePlayerEngine(const std::shared_ptr<Player>& player) override;
    void loadAsset(const std::shared_ptr<UrlAsset>& asset) override;
};

}  // namespace zarvo
