#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

// A rectangle in points: its origin (top left) and size.
struct ZARVO_EXPORT Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const Rect&) const = default;
};

}  // namespace zarvo
