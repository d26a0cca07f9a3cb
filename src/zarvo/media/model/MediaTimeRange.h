#pragma once

#include "zarvo/media/model/MediaTime.h"

namespace zarvo {

// A span of a media timeline.
struct MediaTimeRange {
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
