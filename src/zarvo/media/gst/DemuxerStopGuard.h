#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"

namespace zarvo {

// What stopping a pipeline must wait for in its adaptive demuxer (hlsdemux2), and what it must
// keep from it while it stops.
//
// The demuxer starts its download thread as it starts running and stops it by quitting the
// thread's main loop: a quit that comes before the thread has entered its loop is lost, and the
// stop then waits on the thread for minutes. A stop waits until the demuxer has run for a short
// while.
//
// The demuxer handles its first playlist on the thread that brings it in, once that playlist has
// ended, and fetches the media playlist there before it returns. Stopping the demuxer in the
// meantime tears it down under that thread, which then reads what is gone. Once a stop begins,
// the demuxer's input is held back, and the stop waits until no input is being handled. The
// requests that the handling waits on are answered at once by then.
//
// The waits are bounded all the same: a stop never waits more than a second.
class DemuxerStopGuard {
public:
    DemuxerStopGuard() = default;
    ~DemuxerStopGuard();
    DemuxerStopGuard(const DemuxerStopGuard&) = delete;
    DemuxerStopGuard& operator=(const DemuxerStopGuard&) = delete;

    // A demuxer was set up (on any thread); it replaces the one before.
    void demuxerSetUp(GstElement* demuxer);
    // Each message as it is posted (on the thread that posts it).
    void messagePosted(GstMessage* message);
    // Before the pipeline stops: from here on, the demuxer gets no input; returns once it is
    // neither starting nor handling input.
    void beforeStop();
    // Once the pipeline has stopped: the next demuxer gets its input again.
    void afterStop();

private:
    static GstPadProbeReturn onInput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    void release();

    std::atomic<bool> stopping_{false};
    std::atomic<std::int64_t> runningSince_{0};  // steady clock, nanoseconds; 0 for not yet
    std::mutex mutex_;
    GstRef<GstElement> demuxer_;  // while it may be stopped
    GstRef<GstPad> input_;        // its sink pad
    gulong probe_ = 0;
};

}  // namespace zarvo
