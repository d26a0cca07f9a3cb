#pragma once

#include <memory>

#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/PlayerEngine.h"

namespace zarvo {

class Player;
class UrlAsset;

// What plays media: the GStreamer engine in the product, a scripted engine in the SDK's own
// tests. Players and assets take the engine that is current when they are made.
class MediaEngine {
public:
    virtual ~MediaEngine() = default;

    // The process's engine: the standard one unless a ScopedMediaEngine replaced it.
    static std::shared_ptr<MediaEngine> current();
    // The engine the product plays with. The model only declares it: the engine library that
    // a program links in defines it (GStreamer's, in media/gst), so that nothing here depends
    // on how media is played.
    static std::shared_ptr<MediaEngine> standard();

    virtual std::unique_ptr<PlayerEngine> makePlayerEngine(
        const std::shared_ptr<Player>& player) = 0;
    // Starts reading an asset's playlists; called once per asset, when it is first needed.
    virtual void loadAsset(const std::shared_ptr<UrlAsset>& asset) = 0;

protected:
    // The pass for the engine-side members of Player, PlayerItem, UrlAsset and the collectors.
    static MediaEngineKey key() { return MediaEngineKey(); }

private:
    friend class ScopedMediaEngine;
    static void setCurrent(std::shared_ptr<MediaEngine> engine);
};

// Replaces MediaEngine::current() for its lifetime.
class ScopedMediaEngine {
public:
    explicit ScopedMediaEngine(std::shared_ptr<MediaEngine> engine);
    ~ScopedMediaEngine();
    ScopedMediaEngine(const ScopedMediaEngine&) = delete;
    ScopedMediaEngine& operator=(const ScopedMediaEngine&) = delete;

private:
    std::shared_ptr<MediaEngine> previous_;
};

}  // namespace zarvo
