#include "zarvo/media/model/PlayerLayer.h"

#include <atomic>
#include <cmath>

#include "zarvo/media/model/Player.h"

namespace zarvo {

namespace {

std::uint64_t nextLayerId() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

}  // namespace

PlayerLayer::PlayerLayer() : id_(nextLayerId()) {}

PlayerLayer::~PlayerLayer() {
    if (player_) {
        player_->setVideoOutput(id_, std::nullopt);
    }
}

void PlayerLayer::setPlayer(std::shared_ptr<Player> player) {
    if (player_ && player_ != player) {
        player_->setVideoOutput(id_, std::nullopt);
        // The old player's last picture stays on the window until painted over.
        setNeedsDisplay();
    }
    player_ = std::move(player);
    update();
}

void PlayerLayer::setVideoGravity(LayerVideoGravity gravity) {
    videoGravity_ = gravity;
    update();
}

void PlayerLayer::windowChanged(std::optional<NativeWindowHandle> window, Rect bounds) {
    window_ = window;
    bounds_ = bounds;
    update();
}

void PlayerLayer::windowExposed() {
    if (player_ && window_) {
        player_->redrawVideoOutput(id_);
    }
}

void PlayerLayer::update() {
    if (!player_) {
        return;
    }
    if (!window_) {
        player_->setVideoOutput(id_, std::nullopt);
        return;
    }
    VideoOutput output;
    output.window = *window_;
    output.width = std::max(1, static_cast<int>(std::lround(bounds_.width)));
    output.height = std::max(1, static_cast<int>(std::lround(bounds_.height)));
    output.gravity = videoGravity_;
    player_->setVideoOutput(id_, output);
}

}  // namespace zarvo
