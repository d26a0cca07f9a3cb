#include "zarvo/player/ZMPlaybackStatistics.h"

#include <algorithm>
#include <cmath>

#include "zarvo/media/model/PlayerItem.h"

namespace zarvo {

ZMPlaybackStatistics ZMPlaybackStatistics::of(const PlayerItem& item) {
    const auto counted = item.statistics();
    ZMPlaybackStatistics statistics;
    statistics.startupTime = counted.startupTime;
    statistics.stallCount = counted.numberOfStalls;
    statistics.stallDuration = counted.stallDuration;
    statistics.droppedFrames = counted.droppedVideoFrames;
    statistics.decodedFrames = counted.decodedVideoFrames;
    const auto log = item.accessLog();
    if (!log || log->events().empty()) {
        return statistics;
    }
    double watched = 0;
    double weighted = 0;
    double lowest = INFINITY;
    double highest = -INFINITY;
    for (const auto& event : log->events()) {
        statistics.bytesDownloaded += event.numberOfBytesTransferred;
        if (event.durationWatched > 0 && std::isfinite(event.durationWatched)) {
            const auto bitrate = static_cast<std::int64_t>(event.indicatedBitrate);
            statistics.timeByBitrate[bitrate] += event.durationWatched;
            watched += event.durationWatched;
            weighted += event.indicatedBitrate * event.durationWatched;
            lowest = std::min(lowest, event.indicatedBitrate);
            highest = std::max(highest, event.indicatedBitrate);
        }
    }
    const double current = log->events().back().indicatedBitrate;
    if (current > 0) {
        statistics.currentBitrate = current;
    }
    statistics.averageBitrate = watched > 0 ? weighted / watched : current;
    if (lowest <= highest) {
        // Rounding in the sums can put the mean an ulp outside the rates that played; it never
        // lies outside them.
        statistics.averageBitrate = std::clamp(statistics.averageBitrate, lowest, highest);
    }
    return statistics;
}

}  // namespace zarvo
