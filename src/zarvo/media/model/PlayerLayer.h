#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "zarvo/media/model/LayerVideoGravity.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Layer.h"

namespace zarvo {

class Player;

// The layer of a view that shows a player's video: while it has a window and a player, the
// player draws into the window with the layer's gravity. Main thread only.
class ZARVO_EXPORT PlayerLayer : public Layer {
public:
    PlayerLayer();
    ~PlayerLayer() override;
    PlayerLayer(const PlayerLayer&) = delete;
    PlayerLayer& operator=(const PlayerLayer&) = delete;

    const std::shared_ptr<Player>& player() const { return player_; }
    // The new player draws here at once; the old one stops drawing and the window shows its
    // background.
    void setPlayer(std::shared_ptr<Player> player);
    LayerVideoGravity videoGravity() const { return videoGravity_; }
    void setVideoGravity(LayerVideoGravity gravity);

    void windowChanged(std::optional<NativeWindowHandle> window, Rect bounds) override;
    void windowExposed() override;

private:
    void update();

    const std::uint64_t id_;
    std::shared_ptr<Player> player_;
    LayerVideoGravity videoGravity_ = LayerVideoGravity::resizeAspect;
    std::optional<NativeWindowHandle> window_;
    Rect bounds_;
};

}  // namespace zarvo
