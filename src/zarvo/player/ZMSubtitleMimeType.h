#pragma once

namespace zarvo {

// The format of a side-loaded subtitle file.
enum class ZMSubtitleMimeType {
    webVTT,
    ttml,
};

}  // namespace zarvo
