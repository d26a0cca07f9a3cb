#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>

#include <gst/gst.h>

#include "zarvo/media/model/PlayerItemStatistics.h"

namespace zarvo {

// Counts one item's playback for its statistics: the time to its first frame, its stalls, and
// the video frames that reached the sink or were dropped late. Main thread, but for
// videoFrame(), which the sink's streaming thread calls. Times come from the scheduler's clock.
class PlaybackCounters {
public:
    // A new item becomes current (or none): startup is timed from now. Returns the figures of
    // the item that left, a stall going on counted up to now.
    PlayerItemStatistics reset();
    // A video frame reached the sink.
    void videoFrame();
    void stallStarted();
    // The length of the stall that ended, or none when none was going on.
    std::optional<double> stallEnded();
    // A message of `playbin`'s bus: the drops that QoS messages of the video decoder or of its
    // video sink tell are counted.
    void busMessage(GstMessage* message, GstElement* playbin);
    PlayerItemStatistics now() const;

private:
    PlayerItemStatistics statistics_;
    double startUptime_ = 0;
    std::optional<double> stallStart_;
    std::atomic<std::int64_t> videoFrames_{0};
    std::atomic<double> firstFrameUptime_{-1};             // -1 before it
    std::map<const GstObject*, guint64> droppedBySource_;  // the last count of each element
};

}  // namespace zarvo
