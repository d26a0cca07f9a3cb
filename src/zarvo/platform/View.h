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

// A rectangle on screen with a background colour and a layer that draws its content: an X11
// window, either a child of a window the host gives (its handle) at `frame`, or a top-level
// window of its own. Without a display (no $DISPLAY, or the server refuses) the view keeps its
// properties and has no window; its layer hears of none. Main thread only.
class ZARVO_EXPORT View : public std::enable_shared_from_this<View> {
public:
    using NativeWindowHandle = Layer::NativeWindowHandle;

    struct Token {
        explicit Token() = default;
    };

    // A view of class V (View or a subclass constructible from a Token), shown at once.
    template <typename V = View>
    static std::shared_ptr<V> make(Rect frame, std::optional<NativeWindowHandle> parent = {}) {
        auto view = std::make_shared<V>(Token{});
        view->install(frame, parent);
        return view;
    }

    explicit View(Token) {}
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    Rect frame() const { return frame_; }
    void setFrame(Rect frame);
    Rect bounds() const { return {0, 0, frame_.width, frame_.height}; }
    Color backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(Color color);
    const std::shared_ptr<Layer>& layer() const { return layer_; }
    // The view's X11 window; none without a display.
    std::optional<NativeWindowHandle> nativeWindow() const { return window_; }
    // The title a window of its own shows.
    void setTitle(const std::string& title);

    // Keys pressed while the window has the focus, as the text they type ("q").
    Observation observeKeyPresses(std::function<void(const std::string&)> handler) {
        return keyObservers_.add(std::move(handler));
    }
    // The close button of a window of its own. The view stays; the host decides.
    Observation observeCloseRequests(std::function<void()> handler) {
        return closeObservers_.add(std::move(handler));
    }

protected:
    // The class of the view's layer, asked once when the view is made.
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
