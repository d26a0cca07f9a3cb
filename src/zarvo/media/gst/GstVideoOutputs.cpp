#include "zarvo/media/gst/GstVideoOutputs.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <mutex>

#include <gst/video/videooverlay.h>

#include "zarvo/media/gst/LibavVideoDecoder.h"
#include "zarvo/platform/Log.h"

namespace zarvo {

struct GstVideoOutputs::Branch {
    VideoOutput output;
    GstRef<GstPad> teePad;
    GstElement* queue = nullptr;  // the elements are owned by the bin
    GstElement* crop = nullptr;
    GstElement* scale = nullptr;
    GstElement* convert = nullptr;
    GstElement* filter = nullptr;
    GstElement* sink = nullptr;

    std::array<GstElement*, 6> elements() const {
        return {queue, crop, scale, convert, filter, sink};
    }
};

namespace {

GstElement* element(const char* factory) {
    return gst_element_factory_make(factory, nullptr);
}

// Runs `work` while the tee pushes nothing through `teePad`: at once on this thread when no
// picture passes now, else on the streaming thread as soon as its push has returned. Whether
// it ran within two seconds; when it did not, it never runs.
bool whileIdle(GstPad* teePad, std::function<void()> work) {
    struct Call {
        std::function<void()> work;
        std::mutex mutex;
        std::condition_variable done;
        bool ran = false;
        bool cancelled = false;
    };
    using Shared = std::shared_ptr<Call>;
    // GLib's locks are futexes that ThreadSanitizer does not see: the call reaches the
    // streaming thread, and leaves it, under a lock that it does see.
    static std::mutex handOver;
    auto call = std::make_shared<Call>();
    gpointer data = nullptr;
    {
        std::lock_guard lock(handOver);
        call->work = std::move(work);
        // The probe owns a share of the call until GStreamer lets go of the probe, which may
        // be after this function has given up on it.
        data = std::make_unique<Shared>(call).release();
    }
    const gulong probe = gst_pad_add_probe(
        teePad, GST_PAD_PROBE_TYPE_IDLE,
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
            Shared call;
            {
                std::lock_guard lock(handOver);
                call = *static_cast<Shared*>(data);
            }
            std::lock_guard lock(call->mutex);
            if (!call->cancelled && !call->ran) {
                call->work();
                call->ran = true;
                call->done.notify_all();
            }
            return GST_PAD_PROBE_REMOVE;
        },
        data,
        [](gpointer data) {
            std::lock_guard lock(handOver);
            std::unique_ptr<Shared>(static_cast<Shared*>(data));
        });
    std::unique_lock lock(call->mutex);
    if (call->done.wait_for(lock, std::chrono::seconds(2), [&] { return call->ran; })) {
        return true;
    }
    call->cancelled = true;
    lock.unlock();
    if (probe != 0) {
        gst_pad_remove_probe(teePad, probe);
    }
    return false;
}

}  // namespace

GstVideoOutputs::GstVideoOutputs(Token) {}

std::shared_ptr<GstVideoOutputs> GstVideoOutputs::make() {
    for (const char* factory :
         {"tee", "queue", "fakesink", "videocrop", "videoscale", "videoconvert", "capsfilter"}) {
        GstRef<GstElementFactory> found(gst_element_factory_find(factory));
        if (!found) {
            return nullptr;
        }
    }
    auto outputs = std::make_shared<GstVideoOutputs>(Token{});
    outputs->bin_ = retainGst(gst_bin_new("zm-video-sink"));
    GstElement* tee = element("tee");
    GstElement* fake = element("fakesink");
    g_object_set(tee, "allow-not-linked", TRUE, nullptr);
    g_object_set(fake, "sync", TRUE, "qos", TRUE, nullptr);
    LibavVideoDecoder::takeAnyLayout(fake);
    gst_bin_add_many(GST_BIN(outputs->bin_.get()), tee, fake, nullptr);
    gst_element_link(tee, fake);
    outputs->pacedSink_ = fake;
    outputs->tee_ = tee;
    outputs->teeSink_ = adoptGst(gst_element_get_static_pad(tee, "sink"));
    GstRef<GstPad> fakeSink(gst_element_get_static_pad(fake, "sink"));
    outputs->pacedTeePad_ = adoptGst(gst_pad_get_peer(fakeSink.get()));
    gst_element_add_pad(outputs->bin_.get(), gst_ghost_pad_new("sink", outputs->teeSink_.get()));
    // Removed by the destructor, which runs once the pipeline has stopped.
    outputs->capsProbe_ =
        gst_pad_add_probe(outputs->teeSink_.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onCaps,
                          outputs.get(), nullptr);
    return outputs;
}

GstVideoOutputs::~GstVideoOutputs() {
    if (teeSink_ && capsProbe_ != 0) {
        gst_pad_remove_probe(teeSink_.get(), capsProbe_);
    }
    if (pacedQueueProbe_ != 0 && !pacedQueueLinked_) {
        gst_pad_remove_probe(pacedTeePad_.get(), pacedQueueProbe_);
    }
    while (!branches_.empty()) {
        auto branch = std::move(branches_.begin()->second);
        branches_.erase(branches_.begin());
        removeBranch(std::move(branch));
    }
}

GstPadProbeReturn GstVideoOutputs::onCaps(GstPad*, GstPadProbeInfo* info, gpointer data) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return GST_PAD_PROBE_OK;
    }
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    const GstStructure* structure = caps ? gst_caps_get_structure(caps, 0) : nullptr;
    Picture picture;
    if (structure == nullptr || !gst_structure_get_int(structure, "width", &picture.width) ||
        !gst_structure_get_int(structure, "height", &picture.height)) {
        return GST_PAD_PROBE_OK;
    }
    if (!gst_structure_get_fraction(structure, "pixel-aspect-ratio", &picture.parN,
                                    &picture.parD) ||
        picture.parN <= 0 || picture.parD <= 0) {
        picture.parN = picture.parD = 1;
    }
    // Laid out before the picture goes on: the first picture of a paused item is the one its
    // windows keep showing.
    auto* self = static_cast<GstVideoOutputs*>(data);
    std::lock_guard lock(self->mutex_);
    self->picture_ = picture;
    for (auto& [id, branch] : self->branches_) {
        self->layout(*branch);
    }
    return GST_PAD_PROBE_OK;
}

void GstVideoOutputs::set(std::uint64_t id, const std::optional<VideoOutput>& output) {
    std::unique_ptr<Branch> removed;
    Branch* changed = nullptr;
    {
        std::lock_guard lock(mutex_);
        auto found = branches_.find(id);
        if (found != branches_.end() &&
            (!output || found->second->output.window != output->window)) {
            removed = std::move(found->second);
            branches_.erase(found);
        } else if (found != branches_.end() && found->second->output != *output) {
            changed = found->second.get();
        }
    }
    if (removed) {
        removeBranch(std::move(removed));
    }
    if (changed != nullptr) {
        // The sink learns the window's new size when told to draw again. That comes before the
        // new layout: the sink draws black bars beside the first picture of new caps, unless an
        // expose in between has drawn the last picture and taken the bars' turn.
        gst_video_overlay_expose(GST_VIDEO_OVERLAY(changed->sink));
        {
            std::lock_guard lock(mutex_);
            changed->output = *output;
            layout(*changed);
        }
        showPausedPicture(*changed);
        return;
    }
    if (!output || branches_.count(id) != 0) {
        return;
    }
    if (auto branch = makeBranch(*output)) {
        Branch& added = *branch;
        {
            std::lock_guard lock(mutex_);
            layout(added);
            branches_.emplace(id, std::move(branch));
        }
        linkBranch(added);
    }
}

void GstVideoOutputs::redraw(std::uint64_t id) {
    auto found = branches_.find(id);
    if (found != branches_.end()) {
        gst_video_overlay_expose(GST_VIDEO_OVERLAY(found->second->sink));
    }
}

void GstVideoOutputs::reattach() {
    for (const auto& [id, branch] : branches_) {
        gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(branch->sink), branch->output.window);
    }
}

bool GstVideoOutputs::isWindowElement(GstObject* object) const {
    for (const auto& [id, branch] : branches_) {
        for (GstElement* element : branch->elements()) {
            if (object == GST_OBJECT(element) ||
                gst_object_has_as_ancestor(object, GST_OBJECT(element))) {
                return true;
            }
        }
    }
    return false;
}

void GstVideoOutputs::queueAheadOfPacedSink() {
    if (pacedQueue_ != nullptr) {
        return;
    }
    GstElement* queue = element("queue");
    // One picture ahead of the paced sink: the windows get each picture a frame before it is
    // due, time enough to scale it. The pipeline already queues a few pictures before this bin,
    // and every one more is a whole decoded picture held (3 MB at 1080p).
    g_object_set(queue, "max-size-buffers", 1u, "max-size-bytes", 0u, "max-size-time",
                 static_cast<guint64>(0), nullptr);
    gst_bin_add(GST_BIN(bin_.get()), queue);
    gst_element_sync_state_with_parent(queue);
    {
        std::lock_guard lock(mutex_);  // the probe reads it on the streaming thread
        pacedQueue_ = queue;
    }
    // Linked in between the tee and the sink once no picture passes: at once before the
    // pipeline runs (the probe is then gone when the call returns: no id), else as soon as the
    // sink has taken the picture it is waiting with.
    pacedQueueProbe_ = gst_pad_add_probe(
        pacedTeePad_.get(), GST_PAD_PROBE_TYPE_IDLE,
        [](GstPad* teePad, GstPadProbeInfo*, gpointer data) {
            auto* self = static_cast<GstVideoOutputs*>(data);
            std::lock_guard lock(self->mutex_);
            GstRef<GstPad> sinkPad(gst_element_get_static_pad(self->pacedSink_, "sink"));
            GstRef<GstPad> queueSink(gst_element_get_static_pad(self->pacedQueue_, "sink"));
            GstRef<GstPad> queueSource(gst_element_get_static_pad(self->pacedQueue_, "src"));
            gst_pad_unlink(teePad, sinkPad.get());
            gst_pad_link(queueSource.get(), sinkPad.get());
            gst_pad_link(teePad, queueSink.get());
            self->pacedQueueLinked_ = true;
            return GST_PAD_PROBE_REMOVE;
        },
        this, nullptr);
}

std::unique_ptr<GstVideoOutputs::Branch> GstVideoOutputs::makeBranch(const VideoOutput& output) {
    GstElement* sink = element("ximagesink");
    if (sink == nullptr) {
        static std::once_flag once;
        std::call_once(once, [] {
            logDiagnostic("GstVideoOutputs",
                          "the GStreamer element \"ximagesink\" is missing (install "
                          "gstreamer1.0-x); views stay black.");
        });
        return nullptr;
    }
    queueAheadOfPacedSink();
    auto branch = std::make_unique<Branch>();
    branch->output = output;
    branch->queue = element("queue");
    branch->crop = element("videocrop");
    branch->scale = element("videoscale");
    branch->convert = element("videoconvert");
    branch->filter = element("capsfilter");
    branch->sink = sink;
    // A window that cannot keep up drops pictures rather than holding the others back; it
    // joins a running pipeline without prerolling it again.
    g_object_set(branch->queue, "leaky", 2, "max-size-buffers", 2u, "max-size-bytes", 0u,
                 "max-size-time", static_cast<guint64>(0), nullptr);
    g_object_set(branch->scale, "add-borders", FALSE, nullptr);
    // A new size for the window reaches the filter while pictures of the old size are on their
    // way to it: it takes those too until the scaler has caught up, instead of failing the
    // whole pipeline as not negotiated.
    g_object_set(branch->filter, "caps-change-mode", 1, nullptr);
    g_object_set(sink, "sync", TRUE, "async", FALSE, "handle-events", FALSE, nullptr);
    gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(sink), output.window);
    GstBin* bin = GST_BIN(bin_.get());
    gst_bin_add_many(bin, branch->queue, branch->crop, branch->scale, branch->convert,
                     branch->filter, sink, nullptr);
    gst_element_link_many(branch->queue, branch->crop, branch->scale, branch->convert,
                          branch->filter, sink, nullptr);
    for (GstElement* element :
         {sink, branch->filter, branch->convert, branch->scale, branch->crop, branch->queue}) {
        gst_element_sync_state_with_parent(element);
    }
    return branch;
}

void GstVideoOutputs::linkBranch(Branch& branch) {
    branch.teePad = adoptGst(gst_element_request_pad_simple(tee_, "src_%u"));
    GstRef<GstPad> queueSink(gst_element_get_static_pad(branch.queue, "sink"));
    // A window takes pictures of any size: the sizes of its own scaler must not reach the
    // player, which would scale every picture to the last window's size.
    gst_pad_add_probe(
        queueSink.get(), GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer) {
            GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
            if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS) {
                return GST_PAD_PROBE_OK;
            }
            GstCaps* filter = nullptr;
            gst_query_parse_caps(query, &filter);
            GstCaps* any = gst_caps_new_any();
            gst_query_set_caps_result(query, filter != nullptr ? filter : any);
            gst_caps_unref(any);
            return GST_PAD_PROBE_HANDLED;
        },
        nullptr, nullptr);
    gst_pad_link(branch.teePad.get(), queueSink.get());
    // A paused player shows its picture in a new window too.
    showPausedPicture(branch);
}

void GstVideoOutputs::removeBranch(std::unique_ptr<Branch> branch) {
    // Unlinked while no picture passes, so that the tee never sees a flushing branch.
    GstPad* teePad = branch->teePad.get();
    const auto unlink = [teePad] {
        GstRef<GstPad> peer(gst_pad_get_peer(teePad));
        if (peer) {
            gst_pad_unlink(teePad, peer.get());
        }
    };
    if (!whileIdle(teePad, unlink)) {
        unlink();
    }
    // A paused sink holds its queue's thread until it flushes: flushing the branch lets the
    // queue stop. The elements stop upstream first, so that every picture is back in the
    // sink's pool before the sink lets go of its display.
    GstRef<GstPad> queueSink(gst_element_get_static_pad(branch->queue, "sink"));
    gst_pad_send_event(queueSink.get(), gst_event_new_flush_start());
    GstBin* bin = GST_BIN(bin_.get());
    for (GstElement* element : branch->elements()) {
        gst_element_set_state(element, GST_STATE_NULL);
        gst_bin_remove(bin, element);
    }
    gst_element_release_request_pad(tee_, branch->teePad.get());
}

void GstVideoOutputs::showPausedPicture(Branch& branch) {
    // Playing, the next picture comes with the new layout; prerolling, the first one does.
    GstState state = GST_STATE_VOID_PENDING;
    GstState pending = GST_STATE_VOID_PENDING;
    if (gst_element_get_state(bin_.get(), &state, &pending, 0) != GST_STATE_CHANGE_SUCCESS ||
        state != GST_STATE_PAUSED || pending != GST_STATE_VOID_PENDING) {
        return;
    }
    GstSample* held = nullptr;
    g_object_get(pacedSink_, "last-sample", &held, nullptr);
    const std::unique_ptr<GstSample, GstMiniObjectUnref> sample(held);
    GstBuffer* picture = sample ? gst_sample_get_buffer(sample.get()) : nullptr;
    const std::unique_ptr<GstCaps, GstMiniObjectUnref> caps(
        gst_pad_get_current_caps(branch.teePad.get()));
    if (picture == nullptr || !caps || gst_sample_get_caps(sample.get()) == nullptr ||
        !gst_caps_is_equal(caps.get(), gst_sample_get_caps(sample.get()))) {
        return;  // nothing shown yet, or a picture of another size is on its way
    }
    // The sink holds the branch's thread while paused: a flush frees it, and the picture then
    // goes through the new layout as the sink's preroll. The flush keeps the running time.
    GstPad* teePad = branch.teePad.get();
    GstRef<GstPad> queueSink(gst_element_get_static_pad(branch.queue, "sink"));
    whileIdle(teePad, [teePad, sink = queueSink.get(), picture] {
        gst_pad_send_event(sink, gst_event_new_flush_start());
        gst_pad_send_event(sink, gst_event_new_flush_stop(FALSE));
        // The flush took the segment; a window added while paused has had nothing yet.
        for (const GstEventType type :
             {GST_EVENT_STREAM_START, GST_EVENT_CAPS, GST_EVENT_SEGMENT}) {
            GstEvent* event = gst_pad_get_sticky_event(teePad, type, 0);
            if (event == nullptr) {
                return;
            }
            if (GstEvent* had = gst_pad_get_sticky_event(sink, type, 0)) {
                gst_event_unref(had);
                if (type != GST_EVENT_SEGMENT) {
                    gst_event_unref(event);
                    continue;
                }
            }
            gst_pad_send_event(sink, event);
        }
        gst_pad_chain(sink, gst_buffer_ref(picture));
    });
}

void GstVideoOutputs::layout(Branch& branch) {
    const Picture& picture = picture_;
    const VideoOutput& output = branch.output;
    int width = std::max(1, output.width);
    int height = std::max(1, output.height);
    int cropX = 0;
    int cropY = 0;
    if (picture.width > 0 && picture.height > 0) {
        // The picture as displayed, in square pixels.
        const double shownWidth = picture.width * static_cast<double>(picture.parN) / picture.parD;
        const double shownHeight = picture.height;
        const double across = output.width / shownWidth;
        const double down = output.height / shownHeight;
        switch (output.gravity) {
            case LayerVideoGravity::resizeAspect: {
                const double scale = std::min(across, down);
                width = std::max(1, static_cast<int>(std::lround(shownWidth * scale)));
                height = std::max(1, static_cast<int>(std::lround(shownHeight * scale)));
                break;
            }
            case LayerVideoGravity::resizeAspectFill: {
                const double scale = std::max(across, down);
                const double keptWidth =
                    output.width / scale * picture.parD / static_cast<double>(picture.parN);
                const double keptHeight = output.height / scale;
                cropX = std::max(0, static_cast<int>((picture.width - keptWidth) / 2));
                cropY = std::max(0, static_cast<int>((picture.height - keptHeight) / 2));
                break;
            }
            case LayerVideoGravity::resize:
                break;
        }
    }
    g_object_set(branch.crop, "left", cropX, "right", cropX, "top", cropY, "bottom", cropY,
                 nullptr);
    GstCaps* caps =
        gst_caps_new_simple("video/x-raw", "width", G_TYPE_INT, width, "height", G_TYPE_INT, height,
                            "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
    g_object_set(branch.filter, "caps", caps, nullptr);
    gst_caps_unref(caps);
}

}  // namespace zarvo
