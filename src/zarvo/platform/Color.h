#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

// An opaque RGB colour, each component from 0 to 1.
struct ZARVO_EXPORT Color {
    double red = 0;
    double green = 0;
    double blue = 0;

    static Color black() { return {}; }
    bool operator==(const Color&) const = default;
};

}  // namespace zarvo
