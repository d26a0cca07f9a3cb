#pragma once

namespace zarvo {

/// How a player layer fits the video into its bounds.
enum class LayerVideoGravity {
    resizeAspect,      ///< the whole picture, its aspect kept, black bars around it
    resizeAspectFill,  ///< the bounds filled, its aspect kept, the overflow cropped
    resize,            ///< stretched to the bounds
};

}  // namespace zarvo
