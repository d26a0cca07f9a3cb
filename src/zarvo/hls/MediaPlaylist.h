#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/hls/MediaSegment.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class MasterPlaylist;

// A variant of a master playlist and, once parsed, its media playlist: the header values
// and the segments it owns.
class ZARVO_EXPORT MediaPlaylist {
public:
    std::weak_ptr<MasterPlaylist> masterPlaylist;  // the master that listed it (not owned)
    std::int64_t programId = 0;
    std::int64_t bandwidth = 0;
    std::optional<std::string> path;  // the URI line as written in the master playlist
    std::optional<std::int64_t> version;
    std::optional<std::int64_t> targetDuration;  // seconds
    std::optional<std::int64_t> mediaSequence;
    std::vector<std::shared_ptr<MediaSegment>> segments;

    void addSegment(std::shared_ptr<MediaSegment> segment);
    // The segment at `index`, or nullptr when the index is outside the list.
    std::shared_ptr<MediaSegment> getSegment(std::int64_t index) const;
    std::int64_t getSegmentCount() const { return static_cast<std::int64_t>(segments.size()); }
    // The single-precision sum of the segment durations in list order (0 without segments).
    // A segment without a duration is a fatal error.
    float duration() const;
};

}  // namespace zarvo
