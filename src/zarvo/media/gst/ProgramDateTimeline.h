#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/media/model/DateRangeMetadataGroup.h"
#include "zarvo/platform/Date.h"

namespace zarvo {

// Maps positions on a playback's timeline to programme dates. The pipeline's timeline starts
// (position 0) at the first segment of the first media playlist it loaded, and runs on
// through the segments in sequence order; each segment dated by EXT-X-PROGRAM-DATE-TIME
// gives the date of every position inside it.
class ProgramDateTimeline {
public:
    // Segments of a media playlist of the main rendition, as served to the pipeline.
    void add(const std::vector<HlsPlaylistRewriter::Segment>& segments);
    // The date at `position` seconds: the date of the segment that holds it plus the offset
    // into it (from the nearest dated segment outside the known ones); nothing without dates.
    std::optional<Date> dateAt(double position) const;
    void reset() { segments_.clear(); }

    // The timed metadata of a playlist's EXT-X-DATERANGE tags that have a start date: the end
    // is END-DATE, else the start plus DURATION, else plus PLANNED-DURATION.
    static std::vector<DateRangeMetadataGroup> metadataGroups(
        const std::vector<HlsPlaylistRewriter::DateRange>& ranges);

private:
    struct Placed {
        double start = 0;  // position of the segment's first frame
        double duration = 0;
        std::optional<Date> date;
    };
    std::map<std::int64_t, Placed> segments_;  // by sequence number
};

}  // namespace zarvo
