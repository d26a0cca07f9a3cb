#include "origin/LivePlaylist.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "origin/AdCue.h"

namespace zarvo::origin {

void LivePlaylist::Schedule::beginAdBreakAfter(double seconds, Date now) {
    // Break 1 starts one interval after the epoch.
    epoch = Date(std::floor(now.timeIntervalSince1970()) + seconds - adInterval);
}

LivePlaylist::LivePlaylist(Schedule schedule, std::vector<double> timeline)
    : schedule_(schedule), durations_(std::move(timeline)) {
    if (durations_.empty()) {
        durations_.push_back(2.0);
    }
    for (double duration : durations_) {
        starts_.push_back(loopDuration_);
        loopDuration_ += duration;
    }
    schedule_.windowSegments = std::max(schedule_.windowSegments, 1);
}

long long LivePlaylist::completedSegments(Date time) const {
    const double elapsed = time.timeIntervalSince(schedule_.epoch);
    if (!(elapsed > 0) || !std::isfinite(elapsed)) {
        return 0;
    }
    const auto loops = static_cast<long long>(std::floor(elapsed / loopDuration_));
    const double intoLoop = elapsed - static_cast<double>(loops) * loopDuration_;
    long long done = 0;
    for (std::size_t j = 0; j < durations_.size(); ++j) {
        // A small tolerance keeps a segment whose end falls exactly on `time` counted.
        if (starts_[j] + durations_[j] <= intoLoop + 1e-9) {
            ++done;
        }
    }
    return loops * static_cast<long long>(durations_.size()) + done;
}

Date LivePlaylist::segmentStart(long long sequence) const {
    const auto count = static_cast<long long>(durations_.size());
    return schedule_.epoch.addingTimeInterval(static_cast<double>(sequence / count) *
                                                  loopDuration_ +
                                              starts_[static_cast<std::size_t>(sequence % count)]);
}

long long LivePlaylist::lastAvailable(Date now) const {
    // Before the first segment has ended, the first one is offered so the playlist is usable.
    return std::max(completedSegments(now) - 1, 0LL);
}

std::string LivePlaylist::live(const SegmentList& rendition, Date now) const {
    const long long last = lastAvailable(now);
    const long long first = std::max(last - schedule_.windowSegments + 1, 0LL);
    return render(rendition, first, last, false);
}

std::string LivePlaylist::dvr(const SegmentList& rendition, Date now,
                              std::optional<Date> from) const {
    const long long last = lastAvailable(now);
    const long long earliest =
        std::min(completedSegments(now.addingTimeInterval(-schedule_.dvrDepthSeconds)), last);
    if (!from) {
        return render(rendition, earliest, last, false);
    }
    const long long first = std::clamp(completedSegments(*from), earliest, last);
    return render(rendition, first, last, true);
}

std::string LivePlaylist::render(const SegmentList& rendition, long long first, long long last,
                                 bool startAtFirst) const {
    const auto loopCount = static_cast<long long>(durations_.size());
    const auto& segments = rendition.segments();
    // Renditions may carry a trailing sliver (audio priming); the loop uses the reference count.
    const auto usable = std::min(loopCount, static_cast<long long>(segments.size()));

    std::string text =
        "#EXTM3U\n#EXT-X-VERSION:" + std::to_string(std::max(rendition.version(), 3)) +
        "\n#EXT-X-TARGETDURATION:" + std::to_string(rendition.targetDuration()) +
        "\n#EXT-X-MEDIA-SEQUENCE:" + std::to_string(first) +
        "\n#EXT-X-DISCONTINUITY-SEQUENCE:" + std::to_string(first / loopCount) + "\n";
    if (startAtFirst) {
        text += "#EXT-X-START:TIME-OFFSET=0,PRECISE=YES\n";
    }
    for (const auto& tag : rendition.sharedTags()) {
        text += tag + "\n";
    }
    const Date windowStart = segmentStart(first);
    const Date windowEnd = segmentStart(last + 1);
    for (const auto& cue : AdCue::overlapping(schedule_.epoch, schedule_.adInterval,
                                              schedule_.adDuration, windowStart, windowEnd)) {
        text += cue.dateRangeTag() + "\n";
    }
    for (long long k = first; k <= last; ++k) {
        const auto j = static_cast<std::size_t>((k % loopCount) % std::max(usable, 1LL));
        const auto& segment = segments[j];
        if (k > first && k % loopCount == 0) {
            text += "#EXT-X-DISCONTINUITY\n";
        }
        char extinf[48];
        std::snprintf(extinf, sizeof extinf, "#EXTINF:%.6f,\n", segment.duration);
        text += "#EXT-X-PROGRAM-DATE-TIME:" + segmentStart(k).iso8601() + "\n";
        text += extinf;
        if (segment.byteRange) {
            text += "#EXT-X-BYTERANGE:" + *segment.byteRange + "\n";
        }
        text += segment.uri + "\n";
    }
    return text;
}

}  // namespace zarvo::origin
