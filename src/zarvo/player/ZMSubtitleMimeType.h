#pragma once

namespace zarvo {

/// The format of a side-loaded subtitle file.
enum class ZMSubtitleMimeType {
    /// WebVTT.
    webVTT,
    /// TTML.
    ttml,
};

}  // namespace zarvo
