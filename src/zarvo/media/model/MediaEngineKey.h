#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

class MediaEngine;

// The pass that engine-side members of the media objects require: only a MediaEngine (the
// GStreamer one, or a scripted one in tests) can make one, so the SDK cannot change what the
// engine reports.
class ZARVO_EXPORT MediaEngineKey {
private:
    friend class MediaEngine;
    MediaEngineKey() = default;
};

}  // namespace zarvo
