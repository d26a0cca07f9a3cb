#pragma once

#include <memory>

#include "zarvo/media/model/LayerVideoGravity.h"
#include "zarvo/media/model/PlayerLayer.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/View.h"

namespace zarvo {

class ZMPlayer;

/// The view a host puts on screen to show the video of a ZMPlayer. Its layer is a player
/// layer, into which the player's system player draws; the view itself draws nothing over its
/// black background. It keeps its player alive; several views may show one player. Main
/// thread only; without an X display it has no window and shows nothing.
class ZARVO_EXPORT ZMPlayerView : public View {
public:
    /// A view at `frame` in the host's window `parent` (an X11 window), or in a window of its
    /// own without one, with a black background and the video fitted by resizeAspect.
    static std::shared_ptr<ZMPlayerView> make(Rect frame,
                                              std::optional<NativeWindowHandle> parent = {});
    /// Used by make() (through View::make()).
    explicit ZMPlayerView(Token token) : View(token) {}

    /// How the video fits the view; resizeAspect unless set.
    LayerVideoGravity videoGravity() const { return videoGravity_; }
    /// Sets how the video fits the view.
    void setVideoGravity(LayerVideoGravity gravity);
    /// The player whose video the view shows; nullptr without one.
    const std::shared_ptr<ZMPlayer>& player() const { return player_; }
    /// Shows the video of `player` (kept alive by the view); nullptr stops showing one.
    void setPlayer(std::shared_ptr<ZMPlayer> player);
    /// The view's layer as a player layer; none if it is not one.
    std::shared_ptr<PlayerLayer> playerLayer() const;

protected:
    /// A player layer.
    std::shared_ptr<Layer> makeLayer() override;

private:
    LayerVideoGravity videoGravity_ = LayerVideoGravity::resizeAspect;
    std::shared_ptr<ZMPlayer> player_;
};

}  // namespace zarvo
