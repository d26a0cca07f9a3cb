#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <variant>

#include <gst/gst.h>

#include "zarvo/media/gst/DemuxerStopGuard.h"
#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/MediaTimeRange.h"
#include "zarvo/media/model/VideoOutput.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

class GstVideoOutputs;

// One player's playbin3 with its sinks and hook-ups: the bus watch on the main context, the
// bus's sync handler, the probe that sees the first video frame, and the elements as playbin3
// sets them up. What they report goes to a listener that owns the pipeline: on the main context
// it is held weakly and kept alive while it is called; streaming threads call it directly, as
// they have all stopped by the time the pipeline (and so the listener) goes.
class PlaybinPipeline {
public:
    class Listener {
    public:
        virtual ~Listener() = default;
        // On the main context.
        virtual void busMessage(GstMessage* message) = 0;
        // On streaming threads.
        virtual void syncMessage(GstMessage* message) = 0;
        virtual void videoBuffer() = 0;
        virtual void elementSetUp(GstElement* element) = 0;
    };
    struct Settings {
        double volume = 1;
        bool muted = false;
        std::map<std::uint64_t, VideoOutput> outputs;  // windows to draw into, by id
    };

    // The pipeline, or the error that names the element that is missing.
    static std::variant<std::unique_ptr<PlaybinPipeline>, Error> make(
        std::weak_ptr<Listener> listener, const Settings& settings);
    ~PlaybinPipeline();
    PlaybinPipeline(const PlaybinPipeline&) = delete;
    PlaybinPipeline& operator=(const PlaybinPipeline&) = delete;

    GstElement* element() const { return playbin_.get(); }
    // Stops the pipeline (NULL state), ready for the next item in the same windows.
    void stop();
    // What the pipeline answers, when it does.
    std::optional<MediaTime> position() const;
    std::optional<MediaTime> duration() const;
    std::optional<MediaTimeRange> seekableRange() const;
    // A flushing seek at `rate`; its sequence number, or GST_SEQNUM_INVALID when refused.
    guint32 seek(MediaTime time, bool exact, double rate);
    void setOutput(std::uint64_t id, const std::optional<VideoOutput>& output);
    void redrawOutput(std::uint64_t id);
    // Whether `source` is a window's element (an error there leaves playback going).
    bool isWindowElement(GstObject* source) const;

    struct Token {
        explicit Token() = default;
    };
    PlaybinPipeline(Token, std::weak_ptr<Listener> listener);

private:
    static gboolean onBusMessage(GstBus* bus, GstMessage* message, gpointer data);
    static GstBusSyncReply onSyncMessage(GstBus* bus, GstMessage* message, gpointer data);
    static void onElementSetup(GstElement* playbin, GstElement* element, gpointer data);
    static void onOverlayChild(GstBin* bin, GstBin* sub, GstElement* element, gpointer data);
    static GstPadProbeReturn onVideoBuffer(GstPad* pad, GstPadProbeInfo* info, gpointer data);

    const std::weak_ptr<Listener> listener_;
    // What streaming threads call, and the calls in progress: the destructor, once the
    // pipeline has stopped, waits until none is left. GStreamer has stopped its threads by then;
    // the wait makes that visible to the race detector too (see StreamingCall).
    class StreamingCall;
    Listener* const streamingListener_;
    std::atomic<int> streamingCalls_{0};
    DemuxerStopGuard demuxerGuard_;
    GstRef<GstElement> playbin_;
    std::shared_ptr<GstVideoOutputs> windows_;  // none with a sink from the environment
    GstRef<GstPad> videoPad_;
    gulong probe_ = 0;
    guint busWatch_ = 0;
};

}  // namespace zarvo
