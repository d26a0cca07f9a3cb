#include "zarvo/player/ZMPlayerView.h"

#include "zarvo/player/ZMPlayer.h"

namespace zarvo {

std::shared_ptr<ZMPlayerView> ZMPlayerView::make(Rect frame,
                                                 std::optional<NativeWindowHandle> parent) {
    auto view = View::make<ZMPlayerView>(frame, parent);
    view->setBackgroundColor(Color::black());
    if (auto layer = view->playerLayer()) {
        layer->setVideoGravity(view->videoGravity_);
    }
    return view;
}

std::shared_ptr<Layer> ZMPlayerView::makeLayer() {
    return std::make_shared<PlayerLayer>();
}

std::shared_ptr<PlayerLayer> ZMPlayerView::playerLayer() const {
    return std::dynamic_pointer_cast<PlayerLayer>(layer());
}

void ZMPlayerView::setVideoGravity(LayerVideoGravity gravity) {
    videoGravity_ = gravity;
    if (auto layer = playerLayer()) {
        layer->setVideoGravity(gravity);
    }
}

void ZMPlayerView::setPlayer(std::shared_ptr<ZMPlayer> player) {
    player_ = std::move(player);
    if (auto layer = playerLayer()) {
        layer->setPlayer(player_ ? player_->systemPlayer() : nullptr);
    }
}

}  // namespace zarvo
