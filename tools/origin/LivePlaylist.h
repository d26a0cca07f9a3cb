#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Date.h"

#include "origin/SegmentList.h"

namespace zarvo::origin {

// Renders live media playlists that loop a VOD rendition on a wall-clock timeline.
// Segment k (the media sequence number) of the endless stream is segment k % N of the
// rendition; it starts at epoch + (k / N) * loopDuration + (start of segment k % N), where the
// timing comes from one reference rendition so that all renditions stay aligned.
class LivePlaylist {
public:
    struct Schedule {
        Date epoch = Date(1'767'225'600.0);  // 2026-01-01 00:00:00 UTC
        int windowSegments = 5;              // segments in a live playlist
        double dvrDepthSeconds = 600;        // how far back a DVR playlist reaches
        double adInterval = 30;              // seconds between advertising breaks
        double adDuration = 10;              // length of each break

        // Moves the epoch so that an advertising break begins `seconds` after `now`, counted
        // from `now`'s whole second (`seconds` within [0, adInterval]).
        void beginAdBreakAfter(double seconds, Date now);
    };

    // `timeline`: the durations of the reference rendition's segments (must not be empty).
    LivePlaylist(Schedule schedule, std::vector<double> timeline);

    // The sliding live window at `now`: the last `windowSegments` segments that have ended.
    std::string live(const SegmentList& rendition, Date now) const;
    // The DVR playlist at `now`. Without `from`, it spans the whole DVR depth; with it, it
    // starts at the segment playing at `from` (kept within the depth) and tells the player
    // to start there.
    std::string dvr(const SegmentList& rendition, Date now, std::optional<Date> from) const;

    // Number of segments that have ended by `time` (0 before the epoch).
    long long completedSegments(Date time) const;
    Date segmentStart(long long sequence) const;
    double loopDuration() const { return loopDuration_; }

    const Schedule& schedule() const { return schedule_; }

private:
    std::string render(const SegmentList& rendition, long long first, long long last,
                       bool startAtFirst) const;
    long long lastAvailable(Date now) const;

    Schedule schedule_;
    std::vector<double> durations_;
    std::vector<double> starts_;  // start of each segment within one loop
    double loopDuration_ = 0;
};

}  // namespace zarvo::origin
