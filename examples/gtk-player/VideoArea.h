#pragma once

#include <gtk/gtk.h>
#include <memory>
#include <zarvo/player/ZMPlayer.h>
#include <zarvo/player/ZMPlayerView.h>

namespace gtkplayer {

// A widget that shows the player's video. The SDK draws into an X11 window of its own (a
// ZMPlayerView) made inside this widget's window while the widget is realised, and kept the
// widget's size.
class VideoArea {
public:
    explicit VideoArea(std::shared_ptr<zarvo::ZMPlayer> player);
    VideoArea(const VideoArea&) = delete;
    VideoArea& operator=(const VideoArea&) = delete;

    GtkWidget* widget() const { return area_; }

private:
    void realized();
    void unrealized();
    void resized();

    GtkWidget* area_;
    std::shared_ptr<zarvo::ZMPlayer> player_;
    std::shared_ptr<zarvo::ZMPlayerView> view_;
};

}  // namespace gtkplayer
