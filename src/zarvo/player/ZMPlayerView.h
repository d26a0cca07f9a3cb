#pragma once

#include <memory>

#include "zarvo/media/model/LayerVideoGravity.h"
#include "zarvo/media/model/PlayerLayer.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/View.h"

namespace zarvo {

class ZMPlayer;

// The view a host puts on screen to show the video of a ZMPlayer. Its layer is a player
// layer, into which the player's system player draws; the view itself draws nothing over its
// black background. It keeps its player alive; several views may show one player.
class ZARVO_EXPORT ZMPlayerView : public View {
public:
    // A view at `frame` in the host's window `parent` (an X11 window), or in a window of its
    // own without one.
    static std::shared_ptr<ZMPlayerView> make(Rect frame,
                                              std::optional<NativeWindowHandle> parent = {});
    explicit ZMPlayerView(Token token) : View(token) {}

    LayerVideoGravity videoGravity() const { return videoGravity_; }
    void setVideoGravity(LayerVideoGravity gravity);
    const std::shared_ptr<ZMPlayer>& player() const { return player_; }
    void setPlayer(std::shared_ptr<ZMPlayer> player);
    // The view's layer as a player layer; none if it is not one.
    std::shared_ptr<PlayerLayer> playerLayer() const;

protected:
    std::shared_ptr<Layer> makeLayer() override;

private:
    LayerVideoGravity videoGravity_ = LayerVideoGravity::resizeAspect;
    std::shared_ptr<ZMPlayer> player_;
};

}  // namespace zarvo
