#include "zarvo/media/gst/PlaybackCounters.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

PlayerItemStatistics PlaybackCounters::reset() {
    auto last = now();
    last.stalled = false;
    statistics_ = {};
    startUptime_ = Scheduler::standard()->uptime();
    stallStart_.reset();
    videoFrames_.store(0, std::memory_order_relaxed);
    firstFrameUptime_.store(-1, std::memory_order_relaxed);
    droppedBySource_.clear();
    return last;
}

void PlaybackCounters::videoFrame() {
    if (videoFrames_.fetch_add(1, std::memory_order_relaxed) == 0) {
        firstFrameUptime_.store(Scheduler::standard()->uptime(), std::memory_order_release);
    }
}

void PlaybackCounters::stallStarted() {
    ++statistics_.numberOfStalls;
    stallStart_ = Scheduler::standard()->uptime();
}

std::optional<double> PlaybackCounters::stallEnded() {
    if (!stallStart_) {
        return std::nullopt;
    }
    const double duration =
        std::max(0.0, Scheduler::standard()->uptime() - *std::exchange(stallStart_, std::nullopt));
    statistics_.stallDuration += duration;
    return duration;
}

// The counts in the messages start again after each flush.
void PlaybackCounters::busMessage(GstMessage* message, GstElement* playbin) {
    if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_QOS) {
        return;
    }
    GstFormat format = GST_FORMAT_UNDEFINED;
    guint64 processed = 0;
    guint64 dropped = 0;
    gst_message_parse_qos_stats(message, &format, &processed, &dropped);
    GstObject* source = GST_MESSAGE_SRC(message);
    if (format != GST_FORMAT_BUFFERS || dropped == G_MAXUINT64 || !GST_IS_ELEMENT(source)) {
        return;
    }
    GstElement* sinkElement = nullptr;
    g_object_get(playbin, "video-sink", &sinkElement, nullptr);
    GstRef<GstElement> videoSink(sinkElement);
    GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(source));
    const char* klass =
        factory ? gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS) : nullptr;
    const bool decoder =
        klass != nullptr && std::string_view(klass).find("Decoder/Video") != std::string_view::npos;
    const bool sink =
        videoSink && (source == GST_OBJECT(videoSink.get()) ||
                      gst_object_has_as_ancestor(source, GST_OBJECT(videoSink.get())));
    if (!decoder && !sink) {
        return;
    }
    guint64& last = droppedBySource_[source];
    statistics_.droppedVideoFrames +=
        static_cast<std::int64_t>(dropped >= last ? dropped - last : dropped);
    last = dropped;
}

PlayerItemStatistics PlaybackCounters::now() const {
    auto statistics = statistics_;
    statistics.decodedVideoFrames = videoFrames_.load(std::memory_order_relaxed);
    if (const double first = firstFrameUptime_.load(std::memory_order_acquire); first >= 0) {
        statistics.startupTime = std::max(0.0, first - startUptime_);
    }
    if (stallStart_) {
        statistics.stalled = true;
        statistics.stallDuration += std::max(0.0, Scheduler::standard()->uptime() - *stallStart_);
    }
    return statistics;
}

}  // namespace zarvo
