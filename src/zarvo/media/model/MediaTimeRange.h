#pragma once

#include "zarvo/media/model/MediaTime.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// A span of a media timeline.
struct ZARVO_EXPORT MediaTimeRange {
    MediaTime start;
    MediaTime duration;

    // start + duration in seconds.
    double endSeconds() const { return start.seconds() + duration.seconds(); }
    bool containsSeconds(double seconds) const {
        return seconds >= start.seconds() && seconds <= endSeconds();
    }
    bool operator==(const MediaTimeRange&) const = default;
};

}  // namespace zarvo
