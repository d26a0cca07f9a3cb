#include "zarvo/media/gst/LibavVideoDecoder.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gst/video/video.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace zarvo {

namespace {

struct CodecContextFree {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct PictureFree {
    void operator()(AVFrame* picture) const { av_frame_free(&picture); }
};

// What an element keeps between calls. The streaming thread uses it under the decoder's stream
// lock; only the thread setting is written from other threads.
struct DecoderState {
    std::unique_ptr<AVCodecContext, CodecContextFree> context;
    std::unique_ptr<AVPacket, PacketFree> packet{av_packet_alloc()};
    std::unique_ptr<AVFrame, PictureFree> picture{av_frame_alloc()};
    GstVideoCodecState* input = nullptr;
    AVCodecID codec = AV_CODEC_ID_NONE;
    std::vector<std::uint8_t> codecData;  // what the open context was made with
    int threads = 0;                      // and its thread setting
    std::atomic<int> maxThreads{0};
    bool zeroCopy = false;  // the elements downstream read video metas
    // The pictures the source pad was last set up for.
    int format = AV_PIX_FMT_NONE;
    int width = 0;
    int height = 0;
    AVRational aspect{0, 1};

    DecoderState() = default;
    DecoderState(const DecoderState&) = delete;
    DecoderState& operator=(const DecoderState&) = delete;
    ~DecoderState() { setInput(nullptr); }

    void setInput(GstVideoCodecState* state) {
        GstVideoCodecState* held = state != nullptr ? gst_video_codec_state_ref(state) : nullptr;
        if (input != nullptr) {
            gst_video_codec_state_unref(input);
        }
        input = held;
    }
};

struct ZmVideoDecoder {
    GstVideoDecoder parent;
    DecoderState* state;  // made in instanceInit, deleted in finalize
};

struct ZmVideoDecoderClass {
    GstVideoDecoderClass parent;
};

GstVideoDecoderClass* parentClass = nullptr;
constexpr guint maxThreadsProperty = 1;

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-h264, stream-format=(string){avc, avc3, byte-stream}, "
                    "alignment=(string)au; "
                    "video/x-h265, stream-format=(string){hvc1, hev1, byte-stream}, "
                    "alignment=(string)au"));

GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(
        GST_VIDEO_CAPS_MAKE("{ I420, Y42B, Y444, NV12, GRAY8, I420_10LE, I422_10LE, Y444_10LE }")));

DecoderState& stateOf(gpointer decoder) {
    return *static_cast<ZmVideoDecoder*>(decoder)->state;
}

GstVideoFormat videoFormat(int format) {
    switch (format) {
        case AV_PIX_FMT_YUV420P:
        case AV_PIX_FMT_YUVJ420P:
            return GST_VIDEO_FORMAT_I420;
        case AV_PIX_FMT_YUV422P:
        case AV_PIX_FMT_YUVJ422P:
            return GST_VIDEO_FORMAT_Y42B;
        case AV_PIX_FMT_YUV444P:
        case AV_PIX_FMT_YUVJ444P:
            return GST_VIDEO_FORMAT_Y444;
        case AV_PIX_FMT_NV12:
            return GST_VIDEO_FORMAT_NV12;
        case AV_PIX_FMT_GRAY8:
            return GST_VIDEO_FORMAT_GRAY8;
        case AV_PIX_FMT_YUV420P10LE:
            return GST_VIDEO_FORMAT_I420_10LE;
        case AV_PIX_FMT_YUV422P10LE:
            return GST_VIDEO_FORMAT_I422_10LE;
        case AV_PIX_FMT_YUV444P10LE:
            return GST_VIDEO_FORMAT_Y444_10LE;
        default:
            return GST_VIDEO_FORMAT_UNKNOWN;
    }
}

AVCodecID codecOf(const GstCaps* caps) {
    const GstStructure* structure = gst_caps_get_structure(caps, 0);
    if (gst_structure_has_name(structure, "video/x-h264")) {
        return AV_CODEC_ID_H264;
    }
    if (gst_structure_has_name(structure, "video/x-h265")) {
        return AV_CODEC_ID_HEVC;
    }
    return AV_CODEC_ID_NONE;
}

std::vector<std::uint8_t> bytesOf(GstBuffer* buffer) {
    std::vector<std::uint8_t> bytes;
    GstMapInfo map;
    if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        bytes.assign(map.data, map.data + map.size);
        gst_buffer_unmap(buffer, &map);
    }
    return bytes;
}

std::string describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// A decoder context for `codec`, opened with its out-of-band parameter sets (`extra`, the
// codec data of avc and hvc1 streams), or null.
std::unique_ptr<AVCodecContext, CodecContextFree> openContext(
    AVCodecID codec, const std::vector<std::uint8_t>& extra, int threads) {
    const AVCodec* decoder = avcodec_find_decoder(codec);
    std::unique_ptr<AVCodecContext, CodecContextFree> context(
        decoder != nullptr ? avcodec_alloc_context3(decoder) : nullptr);
    if (!context) {
        return nullptr;
    }
    if (!extra.empty()) {
        context->extradata =
            static_cast<std::uint8_t*>(av_mallocz(extra.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (context->extradata == nullptr) {
            return nullptr;
        }
        std::memcpy(context->extradata, extra.data(), extra.size());
        context->extradata_size = static_cast<int>(extra.size());
    }
    context->thread_count = threads;
    context->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (avcodec_open2(context.get(), decoder, nullptr) < 0) {
        return nullptr;
    }
    return context;
}

// The buffer of `picture` that `data` lies in, and the bytes from `data` to that buffer's end.
std::pair<AVBufferRef*, std::size_t> bufferHolding(const AVFrame& picture,
                                                   const std::uint8_t* data) {
    for (AVBufferRef* buffer : picture.buf) {
        if (buffer != nullptr && data >= buffer->data && data < buffer->data + buffer->size) {
            return {buffer, static_cast<std::size_t>(buffer->data + buffer->size - data)};
        }
    }
    return {nullptr, 0};
}

// The first component stored in plane `plane` of pictures in the format of `info`. Its rows are
// the plane's rows (NV12's second plane holds two components side by side).
int firstComponent(const GstVideoInfo& info, guint plane) {
    gint components[GST_VIDEO_MAX_COMPONENTS];
    gst_video_format_info_component(info.finfo, plane, components);
    return components[0];
}

// A buffer over the planes of `picture`, one memory each, that holds a reference to the
// picture's buffers until the last user lets it go; null when a plane is not where expected.
GstBuffer* wrap(const AVFrame& picture, const GstVideoInfo& info) {
    gsize offsets[GST_VIDEO_MAX_PLANES] = {};
    gint strides[GST_VIDEO_MAX_PLANES] = {};
    GstBuffer* buffer = gst_buffer_new();
    gsize at = 0;
    for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
        const int stride = picture.linesize[plane];
        const auto [owner, room] = bufferHolding(picture, picture.data[plane]);
        const std::size_t size =
            stride > 0 ? static_cast<std::size_t>(stride) *
                             GST_VIDEO_INFO_COMP_HEIGHT(&info, firstComponent(info, plane))
                       : 0;
        AVBufferRef* held =
            owner != nullptr && size > 0 && size <= room ? av_buffer_ref(owner) : nullptr;
        if (held == nullptr) {
            gst_buffer_unref(buffer);
            return nullptr;
        }
        gst_buffer_append_memory(
            buffer, gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, picture.data[plane], size, 0,
                                           size, held, [](gpointer data) {
                                               auto* reference = static_cast<AVBufferRef*>(data);
                                               av_buffer_unref(&reference);
                                           }));
        offsets[plane] = at;
        strides[plane] = stride;
        at += size;
    }
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info),
                                   GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                   GST_VIDEO_INFO_N_PLANES(&info), offsets, strides);
    return buffer;
}

// Copies the visible rows of `picture` into `out`, a picture of the plain layout.
void copyPlanes(const AVFrame& picture, GstVideoFrame& out) {
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&out); ++plane) {
        const int component = firstComponent(out.info, plane);
        const int rows = GST_VIDEO_FRAME_COMP_HEIGHT(&out, component);
        const std::size_t rowBytes =
            static_cast<std::size_t>(GST_VIDEO_FRAME_COMP_WIDTH(&out, component)) *
            GST_VIDEO_FRAME_COMP_PSTRIDE(&out, component);
        auto* to = static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&out, plane));
        const int toStride = GST_VIDEO_FRAME_PLANE_STRIDE(&out, plane);
        for (int row = 0; row < rows; ++row) {
            std::memcpy(
                to + static_cast<std::ptrdiff_t>(row) * toStride,
                picture.data[plane] + static_cast<std::ptrdiff_t>(row) * picture.linesize[plane],
                rowBytes);
        }
    }
}

// Sets the source pad up for `picture` when its format, size or shape differs from the last, or
// downstream asked for it; whether the pad is set up.
bool negotiateFor(GstVideoDecoder* decoder, DecoderState& state, const AVFrame& picture) {
    const bool changed = picture.format != state.format || picture.width != state.width ||
                         picture.height != state.height ||
                         av_cmp_q(picture.sample_aspect_ratio, state.aspect) != 0;
    if (!gst_pad_check_reconfigure(GST_VIDEO_DECODER_SRC_PAD(decoder)) && !changed) {
        return true;
    }
    const GstVideoFormat format = videoFormat(picture.format);
    if (format == GST_VIDEO_FORMAT_UNKNOWN) {
        const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture.format));
        GST_ELEMENT_ERROR(decoder, STREAM, FORMAT, ("The video's pixel format is not supported."),
                          ("libavcodec decodes to %s", name != nullptr ? name : "?"));
        return false;
    }
    GstVideoCodecState* output = gst_video_decoder_set_output_state(decoder, format, picture.width,
                                                                    picture.height, state.input);
    const GstStructure* caps = gst_caps_get_structure(state.input->caps, 0);
    if (picture.sample_aspect_ratio.num > 0 && picture.sample_aspect_ratio.den > 0 &&
        !gst_structure_has_field(caps, "pixel-aspect-ratio")) {
        GST_VIDEO_INFO_PAR_N(&output->info) = picture.sample_aspect_ratio.num;
        GST_VIDEO_INFO_PAR_D(&output->info) = picture.sample_aspect_ratio.den;
    }
    if (picture.color_range == AVCOL_RANGE_JPEG) {
        output->info.colorimetry.range = GST_VIDEO_COLOR_RANGE_0_255;
    }
    gst_video_codec_state_unref(output);
    state.format = picture.format;
    state.width = picture.width;
    state.height = picture.height;
    state.aspect = picture.sample_aspect_ratio;
    return gst_video_decoder_negotiate(decoder);
}

// Frames the decoder will not give back: it gives pictures back in the order they are shown, so
// a frame shown before `shown` that is still waiting held no picture, or one the decoder
// dropped. A frame without a time goes once many later ones have come back.
void releaseSkippedFrames(GstVideoDecoder* decoder, GstVideoCodecFrame* shown) {
    constexpr guint32 farBehind = 64;
    GList* frames = gst_video_decoder_get_frames(decoder);
    for (GList* item = frames; item != nullptr; item = item->next) {
        auto* frame = static_cast<GstVideoCodecFrame*>(item->data);
        const bool earlier = GST_CLOCK_TIME_IS_VALID(frame->pts) &&
                             GST_CLOCK_TIME_IS_VALID(shown->pts) && frame->pts < shown->pts;
        if (frame != shown &&
            (earlier || frame->system_frame_number + farBehind < shown->system_frame_number)) {
            gst_video_decoder_release_frame(decoder, frame);
        } else {
            gst_video_codec_frame_unref(frame);
        }
    }
    g_list_free(frames);
}

GstFlowReturn decodeError(GstVideoDecoder* decoder, const char* what, int code) {
    GstFlowReturn flow = GST_FLOW_OK;
    GST_VIDEO_DECODER_ERROR(decoder, 1, STREAM, DECODE, ("The video could not be decoded."),
                            ("libavcodec %s: %s", what, describe(code).c_str()), flow);
    return flow;
}

// Sends the picture the decoder gave back to its frame, downstream.
GstFlowReturn push(GstVideoDecoder* decoder, DecoderState& state, const AVFrame& picture) {
    GstVideoCodecFrame* frame =
        picture.pts != AV_NOPTS_VALUE
            ? gst_video_decoder_get_frame(decoder, static_cast<int>(picture.pts))
            : nullptr;
    if (frame == nullptr) {
        return GST_FLOW_OK;  // flushed, or given up on
    }
    releaseSkippedFrames(decoder, frame);
    if (!negotiateFor(decoder, state, picture)) {
        gst_video_decoder_drop_frame(decoder, frame);
        return GST_PAD_IS_FLUSHING(GST_VIDEO_DECODER_SRC_PAD(decoder)) ? GST_FLOW_FLUSHING
                                                                       : GST_FLOW_NOT_NEGOTIATED;
    }
    GstVideoCodecState* output = gst_video_decoder_get_output_state(decoder);
    frame->output_buffer = state.zeroCopy ? wrap(picture, output->info) : nullptr;
    if (frame->output_buffer == nullptr) {
        const GstFlowReturn allocated = gst_video_decoder_allocate_output_frame(decoder, frame);
        GstVideoFrame out;
        if (allocated != GST_FLOW_OK ||
            !gst_video_frame_map(&out, &output->info, frame->output_buffer, GST_MAP_WRITE)) {
            gst_video_codec_state_unref(output);
            gst_video_decoder_drop_frame(decoder, frame);
            return allocated != GST_FLOW_OK ? allocated : GST_FLOW_ERROR;
        }
        copyPlanes(picture, out);
        gst_video_frame_unmap(&out);
    }
    gst_video_codec_state_unref(output);
    if (picture.flags & AV_FRAME_FLAG_CORRUPT) {
        GST_BUFFER_FLAG_SET(frame->output_buffer, GST_BUFFER_FLAG_CORRUPTED);
    }
    return gst_video_decoder_finish_frame(decoder, frame);
}

// Takes every picture the decoder has ready.
GstFlowReturn receive(GstVideoDecoder* decoder, DecoderState& state) {
    for (;;) {
        const int got = avcodec_receive_frame(state.context.get(), state.picture.get());
        if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) {
            return GST_FLOW_OK;
        }
        if (got < 0) {
            return decodeError(decoder, "gave no picture", got);
        }
        const GstFlowReturn flow = push(decoder, state, *state.picture);
        av_frame_unref(state.picture.get());
        if (flow != GST_FLOW_OK) {
            return flow;
        }
    }
}

// Decodes `packet`, or with null, every picture still inside the decoder.
GstFlowReturn decode(GstVideoDecoder* decoder, DecoderState& state, const AVPacket* packet) {
    int sent = avcodec_send_packet(state.context.get(), packet);
    if (sent == AVERROR(EAGAIN)) {
        // Full: once its pictures are taken it takes the packet.
        if (const GstFlowReturn flow = receive(decoder, state); flow != GST_FLOW_OK) {
            return flow;
        }
        sent = avcodec_send_packet(state.context.get(), packet);
    }
    const GstFlowReturn flow = receive(decoder, state);
    if (sent < 0 && sent != AVERROR_EOF && flow == GST_FLOW_OK) {
        return decodeError(decoder, "refused a packet", sent);
    }
    return flow;
}

GstFlowReturn drainDecoder(GstVideoDecoder* decoder) {
    DecoderState& state = stateOf(decoder);
    if (!state.context) {
        return GST_FLOW_OK;
    }
    const GstFlowReturn flow = decode(decoder, state, nullptr);
    avcodec_flush_buffers(state.context.get());
    return flow;
}

gboolean stop(GstVideoDecoder* decoder) {
    DecoderState& state = stateOf(decoder);
    state.context.reset();
    state.codec = AV_CODEC_ID_NONE;
    state.codecData.clear();
    state.setInput(nullptr);
    state.format = AV_PIX_FMT_NONE;
    return TRUE;
}

// A caps event. The decoder reopens, after giving out what it holds, for another codec, other
// parameter sets or another thread setting (which follows the picture size: an adaptive switch
// to another variant, which starts with a key frame); other changes only update the output.
gboolean setFormat(GstVideoDecoder* decoder, GstVideoCodecState* input) {
    DecoderState& state = stateOf(decoder);
    const AVCodecID codec = codecOf(input->caps);
    std::vector<std::uint8_t> codecData = bytesOf(input->codec_data);
    const int threads = state.maxThreads.load();
    const bool reopen = !state.context || codec != state.codec || codecData != state.codecData ||
                        threads != state.threads;
    if (reopen) {
        drainDecoder(decoder);
    }
    state.setInput(input);
    state.format = AV_PIX_FMT_NONE;
    if (!reopen) {
        return TRUE;
    }
    state.context = openContext(codec, codecData, threads);
    if (!state.context) {
        GST_ELEMENT_ERROR(decoder, LIBRARY, INIT, ("The video decoder could not be opened."),
                          ("libavcodec opens no decoder for %s",
                           gst_structure_get_name(gst_caps_get_structure(input->caps, 0))));
        return FALSE;
    }
    state.codec = codec;
    state.codecData = std::move(codecData);
    state.threads = threads;
    return TRUE;
}

GstFlowReturn handleFrame(GstVideoDecoder* decoder, GstVideoCodecFrame* frame) {
    DecoderState& state = stateOf(decoder);
    const guint32 number = frame->system_frame_number;
    GstMapInfo map;
    if (!state.context || !gst_buffer_map(frame->input_buffer, &map, GST_MAP_READ)) {
        gst_video_decoder_drop_frame(decoder, frame);
        return state.context ? GST_FLOW_ERROR : GST_FLOW_NOT_NEGOTIATED;
    }
    AVPacket* packet = state.packet.get();
    // A copy: the decoder reads a little past the end of a packet, which needs padding there.
    const int made = av_new_packet(packet, static_cast<int>(map.size));
    if (made == 0) {
        std::memcpy(packet->data, map.data, map.size);
    }
    gst_buffer_unmap(frame->input_buffer, &map);
    // The frame stays on the decoder's list; its picture finds it again by its number.
    gst_video_codec_frame_unref(frame);
    if (made < 0) {
        return GST_FLOW_ERROR;
    }
    packet->pts = number;
    const GstFlowReturn flow = decode(decoder, state, packet);
    av_packet_unref(packet);
    return flow;
}

gboolean flush(GstVideoDecoder* decoder) {
    if (DecoderState& state = stateOf(decoder); state.context) {
        avcodec_flush_buffers(state.context.get());
    }
    return TRUE;
}

gboolean decideAllocation(GstVideoDecoder* decoder, GstQuery* query) {
    if (!parentClass->decide_allocation(decoder, query)) {
        return FALSE;
    }
    stateOf(decoder).zeroCopy =
        gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    return TRUE;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
    if (id == maxThreadsProperty) {
        stateOf(object).maxThreads = g_value_get_int(value);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
    if (id == maxThreadsProperty) {
        g_value_set_int(value, stateOf(object).maxThreads.load());
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

void finalize(GObject* object) {
    std::unique_ptr<DecoderState>(
        static_cast<ZmVideoDecoder*>(static_cast<gpointer>(object))->state);
    G_OBJECT_CLASS(parentClass)->finalize(object);
}

void instanceInit(GTypeInstance* instance, gpointer) {
    static_cast<ZmVideoDecoder*>(static_cast<gpointer>(instance))->state =
        std::make_unique<DecoderState>().release();
    auto* decoder = static_cast<GstVideoDecoder*>(static_cast<gpointer>(instance));
    gst_video_decoder_set_packetized(decoder, TRUE);
    gst_video_decoder_set_needs_format(decoder, TRUE);
    gst_video_decoder_set_use_default_pad_acceptcaps(decoder, TRUE);
    GST_PAD_SET_ACCEPT_TEMPLATE(GST_VIDEO_DECODER_SINK_PAD(decoder));
}

void classInit(gpointer klass, gpointer) {
    parentClass = static_cast<GstVideoDecoderClass*>(g_type_class_peek_parent(klass));
    auto* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    g_object_class_install_property(
        objectClass, maxThreadsProperty,
        g_param_spec_int("max-threads", "Maximum threads",
                         "Threads to decode with (0: as many as libavcodec chooses)", 0, G_MAXINT,
                         0, static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));

    auto* elementClass = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(
        elementClass, "H.264 and H.265 video decoder", "Codec/Decoder/Video",
        "Decodes H.264 and H.265 with libavcodec into pictures that go downstream uncopied",
        "ZarvoMediaPlayer");

    auto* decoderClass = GST_VIDEO_DECODER_CLASS(klass);
    decoderClass->stop = stop;
    decoderClass->set_format = setFormat;
    decoderClass->handle_frame = handleFrame;
    decoderClass->flush = flush;
    decoderClass->drain = drainDecoder;
    decoderClass->finish = drainDecoder;
    decoderClass->decide_allocation = decideAllocation;
}

}  // namespace

bool LibavVideoDecoder::registerElement() {
    static const bool registered = [] {
        const GType type = g_type_register_static_simple(
            GST_TYPE_VIDEO_DECODER, "ZmVideoDecoder", sizeof(ZmVideoDecoderClass), classInit,
            sizeof(ZmVideoDecoder), instanceInit, static_cast<GTypeFlags>(0));
        return gst_element_register(nullptr, factoryName, GST_RANK_PRIMARY + 1, type) == TRUE;
    }();
    return registered;
}

void LibavVideoDecoder::takeAnyLayout(GstElement* sink) {
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    if (pad == nullptr) {
        return;
    }
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer) {
            GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
            if (GST_QUERY_TYPE(query) != GST_QUERY_ALLOCATION) {
                return GST_PAD_PROBE_OK;
            }
            gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
            return GST_PAD_PROBE_HANDLED;  // answered
        },
        nullptr, nullptr);
    gst_object_unref(pad);
}

}  // namespace zarvo
