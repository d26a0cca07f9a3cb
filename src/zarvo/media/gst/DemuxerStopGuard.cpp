#include "zarvo/media/gst/DemuxerStopGuard.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>

namespace zarvo {

namespace {

using Clock = std::chrono::steady_clock;

// Long enough for a new download thread to have entered its loop.
constexpr std::chrono::milliseconds startTime{100};
// The longest a stop waits.
constexpr std::chrono::milliseconds longestWait{1000};
constexpr std::chrono::milliseconds pollInterval{1};

std::int64_t nanosecondsNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

// Polls `done` until it holds or `deadline` passes; whether it held.
template <typename Done>
bool pollUntil(Clock::time_point deadline, Done done) {
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(pollInterval);
    }
    return true;
}

// Whether `element` has reached PAUSED or beyond.
bool running(GstElement* element) {
    GST_OBJECT_LOCK(element);
    const bool result = GST_STATE(element) >= GST_STATE_PAUSED;
    GST_OBJECT_UNLOCK(element);
    return result;
}

}  // namespace

DemuxerStopGuard::~DemuxerStopGuard() {
    release();
}

void DemuxerStopGuard::demuxerSetUp(GstElement* demuxer) {
    GstRef<GstPad> input(gst_element_get_static_pad(demuxer, "sink"));
    const gulong probe = input ? gst_pad_add_probe(input.get(), GST_PAD_PROBE_TYPE_DATA_DOWNSTREAM,
                                                   onInput, this, nullptr)
                               : 0;
    release();
    std::lock_guard lock(mutex_);
    demuxer_ = retainGst(demuxer);
    input_ = std::move(input);
    probe_ = probe;
    runningSince_ = 0;
}

void DemuxerStopGuard::messagePosted(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_STATE_CHANGED) {
        return;
    }
    {
        std::lock_guard lock(mutex_);
        if (!demuxer_ || GST_MESSAGE_SRC(message) != GST_OBJECT_CAST(demuxer_.get())) {
            return;
        }
    }
    GstState old = GST_STATE_VOID_PENDING;
    GstState now = GST_STATE_VOID_PENDING;
    gst_message_parse_state_changed(message, &old, &now, nullptr);
    if (old == GST_STATE_READY && now == GST_STATE_PAUSED) {
        runningSince_ = nanosecondsNow();
    }
}

void DemuxerStopGuard::beforeStop() {
    stopping_ = true;
    GstRef<GstElement> demuxer;
    GstRef<GstPad> input;
    {
        std::lock_guard lock(mutex_);
        demuxer = retainGst(demuxer_.get());
        input = retainGst(input_.get());
    }
    if (!demuxer) {
        return;
    }
    const auto deadline = Clock::now() + longestWait;
    // A demuxer is set to run as soon as it is set up (by a streaming thread, which a stop does
    // not wait for): one not running yet is about to start. Its state is set just before the
    // news of it is posted; one seen running without that news has started about now.
    std::optional<Clock::time_point> seenRunning;
    pollUntil(deadline, [&] {
        if (runningSince_ != 0) {
            return true;
        }
        if (!seenRunning && running(demuxer.get())) {
            seenRunning = Clock::now();
        }
        return seenRunning && Clock::now() - *seenRunning >= startTime;
    });
    if (const std::int64_t since = runningSince_) {
        const auto ran = std::chrono::nanoseconds(nanosecondsNow() - since);
        if (ran < startTime) {
            std::this_thread::sleep_for(
                std::min<Clock::duration>(startTime - ran, deadline - Clock::now()));
        }
    }
    if (!input) {
        return;
    }
    // Input is handled with the pad's stream lock held, after the probe has let it through.
    // The lock cannot be kept through the stop: that would deadlock with the stop, which waits
    // for the thread that brings the input.
    if (pollUntil(deadline, [&] { return GST_PAD_STREAM_TRYLOCK(input.get()); })) {
        GST_PAD_STREAM_UNLOCK(input.get());
    }
}

void DemuxerStopGuard::afterStop() {
    release();
    stopping_ = false;
}

void DemuxerStopGuard::release() {
    std::lock_guard lock(mutex_);
    if (input_ && probe_ != 0) {
        gst_pad_remove_probe(input_.get(), probe_);
    }
    input_.reset();
    demuxer_.reset();
    probe_ = 0;
}

GstPadProbeReturn DemuxerStopGuard::onInput(GstPad*, GstPadProbeInfo*, gpointer data) {
    return static_cast<DemuxerStopGuard*>(data)->stopping_ ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

}  // namespace zarvo
