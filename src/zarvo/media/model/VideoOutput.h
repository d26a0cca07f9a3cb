#pragma once

#include "zarvo/media/model/LayerVideoGravity.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// A window a player draws its video into: an X11 window, its size in pixels and the gravity.
struct ZARVO_EXPORT VideoOutput {
    unsigned long window = 0;
    int width = 0;
    int height = 0;
    LayerVideoGravity gravity = LayerVideoGravity::resizeAspect;

    bool operator==(const VideoOutput&) const = default;
};

}  // namespace zarvo
