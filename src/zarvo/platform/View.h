#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/platform/Color.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Layer.h"
#include "zarvo/platform/Observation.h"
#include "zarvo/platform/ObserverList.h"
#include "zarvo/platform/Rect.h"

namespace zarvo {

/// A rectangle on screen with a background colour and a layer that draws its content: an X11
/// window, either a child of a window the host gives (its handle) at `frame`, or a top-level
/// window of its own. Without a display (no `$DISPLAY`, or the server refuses) the view keeps
/// its properties and has no window; its layer hears of none. Main thread only: the view's X11
/// events are read on GLib's default main context.
class ZARVO_EXPORT View : public std::enable_shared_from_this<View> {
public:
    /// An X11 window id (an XID), such as `gdk_x11_window_get_xid()` gives for a GTK window.
    using NativeWindowHandle = Layer::NativeWindowHandle;

    /// Restricts construction to make(), which installs the view.
    struct Token {
        /// Made only by make().
        explicit Token() = default;
    };

    /// A view of class V (View or a subclass constructible from a Token), shown at once.
    template <typename V = View>
    static std::shared_ptr<V> make(Rect frame, std::optional<NativeWindowHandle> parent = {}) {
        auto view = std::make_shared<V>(Token{});
        view->install(frame, parent);
        return view;
    }

    /// Used by make(); a view made otherwise has no window.
    explicit View(Token) {}
    /// Destroys the view's window; its layer is told first.
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    /// The view's place in its parent window (or on the screen, for a window of its own).
    Rect frame() const { return frame_; }
    /// Moves and resizes the window; the layer follows.
    void setFrame(Rect frame);
    /// The view's own coordinates: origin 0, 0 and the frame's size.
    Rect bounds() const { return {0, 0, frame_.width, frame_.height}; }
    /// The colour the window shows where the layer draws nothing.
    Color backgroundColor() const { return backgroundColor_; }
    /// Sets the background colour and repaints the window.
    void setBackgroundColor(Color color);
    /// The layer that draws the view's content.
    const std::shared_ptr<Layer>& layer() const { return layer_; }
    /// The view's X11 window; none without a display.
    std::optional<NativeWindowHandle> nativeWindow() const { return window_; }
    /// The title a window of its own shows (ignored for a child window).
    void setTitle(const std::string& title);

    /// Keys pressed while the window has the focus, as the text they type ("q"). The handler
    /// runs until the returned observation is invalidated or destroyed.
    Observation observeKeyPresses(std::function<void(const std::string&)> handler) {
        return keyObservers_.add(std::move(handler));
    }
    /// The close button of a window of its own. The view stays; the host decides. The handler
    /// runs until the returned observation is invalidated or destroyed.
    Observation observeCloseRequests(std::function<void()> handler) {
        return closeObservers_.add(std::move(handler));
    }

protected:
    /// The class of the view's layer, asked once when the view is made.
    virtual std::shared_ptr<Layer> makeLayer() { return std::make_shared<Layer>(); }

private:
    class Connection;

    void install(Rect frame, std::optional<NativeWindowHandle> parent);
    void handleEvent(const void* event);
    void tellLayer();
    void repaint();

    Rect frame_;
    Color backgroundColor_;
    std::shared_ptr<Layer> layer_;
    std::optional<NativeWindowHandle> window_;
    bool ownWindow_ = false;
    Observation route_;
    ObserverList<std::string> keyObservers_;
    ObserverList<> closeObservers_;
};

}  // namespace zarvo
