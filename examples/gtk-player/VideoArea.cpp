#include "VideoArea.h"

#include <gdk/gdkx.h>
#include <iostream>

#include "GtkGlue.h"

namespace gtkplayer {

namespace {

// The widget's area in the device pixels of its own window, which X11 positions are in.
zarvo::Rect frameOf(GtkWidget* widget) {
    const double scale = gtk_widget_get_scale_factor(widget);
    return {0, 0, gtk_widget_get_allocated_width(widget) * scale,
            gtk_widget_get_allocated_height(widget) * scale};
}

}  // namespace

VideoArea::VideoArea(std::shared_ptr<zarvo::ZMPlayer> player)
    : area_(gtk_drawing_area_new()), player_(std::move(player)) {
    gtk_widget_set_size_request(area_, 480, 270);
    gtk_widget_set_hexpand(area_, TRUE);
    gtk_widget_set_vexpand(area_, TRUE);
    connectSignal<void(GtkWidget*)>(area_, "realize", [this](GtkWidget*) { realized(); });
    connectSignal<void(GtkWidget*)>(area_, "unrealize", [this](GtkWidget*) { unrealized(); });
    connectSignal<void(GtkWidget*, GdkRectangle*)>(
        area_, "size-allocate", [this](GtkWidget*, GdkRectangle*) { resized(); });
}

void VideoArea::realized() {
    GdkWindow* window = gtk_widget_get_window(area_);
    // The view's window needs a real X11 parent, not one of GDK's client-side windows.
    if (!GDK_IS_X11_WINDOW(window) || !gdk_window_ensure_native(window)) {
        std::cerr << "zm-gtk-player: video needs GDK's X11 backend\n";
        return;
    }
    const auto xid = gdk_x11_window_get_xid(window);
    // The SDK talks to the X server on a connection of its own: GDK's requests that made the
    // window must have reached the server before the SDK makes a child of it.
    gdk_display_sync(gdk_window_get_display(window));
    view_ = zarvo::ZMPlayerView::make(frameOf(area_), xid);
    view_->setPlayer(player_);
}

void VideoArea::unrealized() {
    // The view's window goes before GDK destroys the window it lives in.
    view_.reset();
}

void VideoArea::resized() {
    if (view_) {
        view_->setFrame(frameOf(area_));
    }
}

}  // namespace gtkplayer
