#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

/// A rectangle in points: its origin (top left) and size. For views, a point is one pixel of
/// the X11 screen.
struct ZARVO_EXPORT Rect {
    /// The left edge.
    double x = 0;
    /// The top edge.
    double y = 0;
    /// The width.
    double width = 0;
    /// The height.
    double height = 0;

    /// Equal origins and sizes.
    bool operator==(const Rect&) const = default;
};

}  // namespace zarvo
