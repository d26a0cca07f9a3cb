#include "zarvo/media/gst/PlaybinPipeline.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>

#include "zarvo/media/gst/GstPipelineSinks.h"
#include "zarvo/media/gst/GstVideoOutputs.h"

namespace zarvo {

namespace {

// How far ahead of playback the demuxer downloads.
constexpr guint64 demuxBufferingTime = 10 * GST_SECOND;
// playbin3's GstPlayFlags that put a deinterlacer and a colour balance in the video chain. HLS
// renditions are progressive and nothing here adjusts colours: without them each item's video
// chain is set up sooner (its first picture comes about a fifth sooner on the sample VOD) and
// each picture passes two elements fewer.
constexpr guint deinterlaceFlag = 1u << 9;
constexpr guint softColorBalanceFlag = 1u << 10;

MediaTime fromClockTime(gint64 nanoseconds) {
    constexpr std::int32_t nanosecondTimescale = 1000000000;
    return MediaTime(nanoseconds, nanosecondTimescale);
}

// Pipelines made so far. Each is counted after it is made and before it is hooked up, and each
// call from a streaming thread reads the count first: that orders the making of a pipeline (and
// of its listener) before the calls for the race detector, which does not see the locks under
// which GStreamer hands the pipeline to its threads.
std::atomic<std::uint64_t> pipelinesMade{0};

}  // namespace

// One call into the listener from a streaming thread.
class PlaybinPipeline::StreamingCall {
public:
    explicit StreamingCall(gpointer data) : pipeline_(*static_cast<PlaybinPipeline*>(data)) {
        pipelinesMade.load(std::memory_order_acquire);
        pipeline_.streamingCalls_.fetch_add(1, std::memory_order_relaxed);
    }
    ~StreamingCall() { pipeline_.streamingCalls_.fetch_sub(1, std::memory_order_release); }
    Listener& listener() const { return *pipeline_.streamingListener_; }
    PlaybinPipeline& pipeline() const { return pipeline_; }

private:
    PlaybinPipeline& pipeline_;
};

std::variant<std::unique_ptr<PlaybinPipeline>, Error> PlaybinPipeline::make(
    std::weak_ptr<Listener> listener, const Settings& settings) {
    GstPipelineSinks sinks;
    if (auto error = GstPipelineSinks::make(sinks)) {
        return *error;
    }
    auto pipeline = std::make_unique<PlaybinPipeline>(Token{}, std::move(listener));
    pipelinesMade.fetch_add(1, std::memory_order_release);
    pipeline->playbin_ = std::move(sinks.playbin);
    pipeline->windows_ = std::move(sinks.windows);
    if (pipeline->windows_) {
        for (const auto& [id, output] : settings.outputs) {
            pipeline->windows_->set(id, output);
        }
    }
    GstElement* playbin = pipeline->playbin_.get();
    g_object_set(playbin, "video-sink", sinks.videoSink.get(), "audio-sink", sinks.audioSink.get(),
                 "volume", static_cast<gdouble>(settings.volume), "mute",
                 settings.muted ? TRUE : FALSE, nullptr);
    guint flags = 0;
    g_object_get(playbin, "flags", &flags, nullptr);
    g_object_set(playbin, "flags", flags & ~(deinterlaceFlag | softColorBalanceFlag), nullptr);
    // Speeds other than 1 keep the sound at its pitch (scaletempo passes audio through at 1).
    if (GstElement* tempo = gst_element_factory_make("scaletempo", "zm-scaletempo")) {
        g_object_set(playbin, "audio-filter", tempo, nullptr);
    }
    if (GstRef<GstPad> pad(gst_element_get_static_pad(sinks.videoSink.get(), "sink")); pad) {
        pipeline->videoPad_ = std::move(pad);
        pipeline->probe_ = gst_pad_add_probe(pipeline->videoPad_.get(), GST_PAD_PROBE_TYPE_BUFFER,
                                             onVideoBuffer, pipeline.get(), nullptr);
    }
    GstRef<GstBus> bus(gst_element_get_bus(playbin));
    pipeline->busWatch_ = gst_bus_add_watch(bus.get(), onBusMessage, pipeline.get());
    gst_bus_set_sync_handler(bus.get(), onSyncMessage, pipeline.get(), nullptr);
    g_signal_connect(playbin, "element-setup", G_CALLBACK(onElementSetup), pipeline.get());
    return pipeline;
}

PlaybinPipeline::PlaybinPipeline(Token, std::weak_ptr<Listener> listener)
    : listener_(listener), streamingListener_(listener.lock().get()) {}

PlaybinPipeline::~PlaybinPipeline() {
    gst_element_set_state(playbin_.get(), GST_STATE_NULL);
    GstRef<GstBus> bus(gst_element_get_bus(playbin_.get()));
    gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
    if (busWatch_ != 0) {
        g_source_remove(busWatch_);
    }
    g_signal_handlers_disconnect_by_data(playbin_.get(), this);
    if (videoPad_ && probe_ != 0) {
        gst_pad_remove_probe(videoPad_.get(), probe_);
    }
    while (streamingCalls_.load(std::memory_order_acquire) != 0) {
        std::this_thread::yield();
    }
}

std::optional<MediaTime> PlaybinPipeline::position() const {
    gint64 position = 0;
    if (gst_element_query_position(playbin_.get(), GST_FORMAT_TIME, &position) && position >= 0) {
        return fromClockTime(position);
    }
    return std::nullopt;
}

std::optional<MediaTime> PlaybinPipeline::duration() const {
    gint64 duration = -1;
    if (gst_element_query_duration(playbin_.get(), GST_FORMAT_TIME, &duration) && duration > 0) {
        return fromClockTime(duration);
    }
    return std::nullopt;
}

std::optional<MediaTimeRange> PlaybinPipeline::seekableRange() const {
    GstQueryRef query(gst_query_new_seeking(GST_FORMAT_TIME));
    gboolean seekable = FALSE;
    gint64 start = -1;
    gint64 end = -1;
    if (!gst_element_query(playbin_.get(), query.get())) {
        return std::nullopt;
    }
    gst_query_parse_seeking(query.get(), nullptr, &seekable, &start, &end);
    if (!seekable || start < 0 || end <= start) {
        return std::nullopt;
    }
    return MediaTimeRange{fromClockTime(start), fromClockTime(end - start)};
}

guint32 PlaybinPipeline::seek(MediaTime time, bool exact, double rate) {
    const auto flags = static_cast<GstSeekFlags>(
        GST_SEEK_FLAG_FLUSH |
        (exact ? GST_SEEK_FLAG_ACCURATE : GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_NEAREST));
    const auto start = static_cast<gint64>(std::llround(std::max(time.seconds(), 0.0) * 1e9));
    GstEvent* event = gst_event_new_seek(rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, start,
                                         GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE);
    const guint32 seqnum = gst_event_get_seqnum(event);
    return gst_element_send_event(playbin_.get(), event) ? seqnum : GST_SEQNUM_INVALID;
}

void PlaybinPipeline::setOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
    if (windows_) {
        windows_->set(id, output);
    }
}

void PlaybinPipeline::redrawOutput(std::uint64_t id) {
    if (windows_) {
        windows_->redraw(id);
    }
}

void PlaybinPipeline::stop() {
    demuxerGuard_.beforeStop();
    gst_element_set_state(playbin_.get(), GST_STATE_NULL);
    demuxerGuard_.afterStop();
    if (windows_) {
        windows_->reattach();
    }
}

bool PlaybinPipeline::isWindowElement(GstObject* source) const {
    return windows_ && windows_->isWindowElement(source);
}

gboolean PlaybinPipeline::onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    if (auto listener = static_cast<PlaybinPipeline*>(data)->listener_.lock()) {
        listener->busMessage(message);
    }
    return G_SOURCE_CONTINUE;
}

GstBusSyncReply PlaybinPipeline::onSyncMessage(GstBus*, GstMessage* message, gpointer data) {
    const StreamingCall call(data);
    call.pipeline().demuxerGuard_.messagePosted(message);
    call.listener().syncMessage(message);
    return GST_BUS_PASS;
}

void PlaybinPipeline::onElementSetup(GstElement*, GstElement* element, gpointer data) {
    const StreamingCall call(data);
    GstElementFactory* factory = gst_element_get_factory(element);
    const std::string name = factory ? GST_OBJECT_NAME(factory) : "";
    if (name == "subtitleoverlay") {
        g_signal_connect(element, "deep-element-added", G_CALLBACK(onOverlayChild), data);
    }
    if (name == "hlsdemux2") {
        // hlsdemux2 starts a newly selected rendition where the others have downloaded to:
        // keeping that close to the playing position lets an audio switch be heard soon.
        g_object_set(element, "high-watermark-time", demuxBufferingTime, nullptr);
        call.pipeline().demuxerGuard_.demuxerSetUp(element);
    }
    call.listener().elementSetUp(element);
}

void PlaybinPipeline::onOverlayChild(GstBin*, GstBin*, GstElement* element, gpointer data) {
    onElementSetup(nullptr, element, data);
}

GstPadProbeReturn PlaybinPipeline::onVideoBuffer(GstPad*, GstPadProbeInfo*, gpointer data) {
    StreamingCall(data).listener().videoBuffer();
    return GST_PAD_PROBE_OK;
}

}  // namespace zarvo
