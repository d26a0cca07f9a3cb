#pragma once

#include <functional>
#include <optional>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Rect.h"

namespace zarvo {

// What draws the content of a View: the view tells it where (its native window, when it has
// one) and how big, on the main thread. A plain layer draws nothing over the background.
class ZARVO_EXPORT Layer {
public:
    using NativeWindowHandle = unsigned long;  // an X11 window

    virtual ~Layer() = default;
    // The window moved to another size, or appeared, or went (none: no display, or the view is
    // going away, after which the layer must not draw into the window again).
    virtual void windowChanged(std::optional<NativeWindowHandle> window, Rect bounds) {
        (void)window;
        (void)bounds;
    }
    // Part of the window was uncovered and shows the background until drawn again.
    virtual void windowExposed() {}

protected:
    // Asks the view to paint its background over the whole window (and then expose it).
    void setNeedsDisplay() {
        if (needsDisplay_) {
            needsDisplay_();
        }
    }

private:
    friend class View;
    std::function<void()> needsDisplay_;
};

}  // namespace zarvo
