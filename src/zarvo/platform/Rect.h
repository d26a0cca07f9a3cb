#pragma once

namespace zarvo {

// A rectangle in points: its origin (top left) and size.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const Rect&) const = default;
};

}  // namespace zarvo
