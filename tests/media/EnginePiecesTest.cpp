// The pieces of the GStreamer engine, most of which decide without a pipeline: which streams to
// select, what status a playback reports, how subtitles are styled, how seeks are paced, what
// bounds keep adaptive switching within an item's limits, how many threads a decoder gets, how
// audio is taken where there is no sound output, and the video decoder's pictures.
#include <filesystem>

#include <gst/video/video.h>
#include <gtest/gtest.h>

#include "zarvo/media/gst/BusStatusMapper.h"
#include "zarvo/media/gst/DecoderThreads.h"
#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/GstPipelineSinks.h"
#include "zarvo/media/gst/LibavVideoDecoder.h"
#include "zarvo/media/gst/SeekController.h"
#include "zarvo/media/gst/StreamSelection.h"
#include "zarvo/media/gst/SubtitleStyling.h"
#include "zarvo/media/gst/VariantLimits.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/platform/GlibMemory.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"

#include "origin/ContentCache.h"
#include "origin/ToolRun.h"

namespace zarvo {
namespace {

using Type = StreamSelection::Type;
using Rendition = MediaSelectionOption::Rendition;

Rendition rendition(std::string name) {
    Rendition r;
    r.name = std::move(name);
    return r;
}

const std::vector<StreamSelection::Stream> collection = {
    {"hls/video-0", Type::video},        {"hls/audio-English", Type::audio},
    {"hls/audio-French", Type::audio},   {"hls/text-English", Type::text},
    {"hls/text-Deutsch", Type::text},    {"hls/other", Type::other},
    {"hls/audio-French-AD", Type::audio}};

// Plays `pipeline` until it ends or fails, then stops it: "the end of the stream", or what
// happened instead.
std::string playUntilItEnds(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstRef<GstBus> bus(gst_element_get_bus(pipeline));
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus.get(), 20 * GST_SECOND,
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    std::string outcome =
        message == nullptr ? "no end within 20 s"
        : GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS
            ? "the end of the stream"
            : std::string("an error from ") + GST_OBJECT_NAME(GST_MESSAGE_SRC(message));
    if (message != nullptr) {
        gst_message_unref(message);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    return outcome;
}

TEST(StreamSelectionTest, PicksVideoTheWantedRenditionsAndFallsBackToTheFirst) {
    using V = std::vector<std::string>;
    EXPECT_EQ(StreamSelection::choose(collection, {}, {}),
              (V{"hls/video-0", "hls/audio-English", "hls/text-English"}));
    EXPECT_EQ(StreamSelection::choose(collection, {rendition("French"), rendition("Deutsch")}, {}),
              (V{"hls/video-0", "hls/audio-French", "hls/text-Deutsch"}));
    // A name that is only the end of another id does not match it.
    EXPECT_EQ(StreamSelection::choose(collection, {rendition("AD"), std::nullopt}, {}),
              (V{"hls/video-0", "hls/audio-English", "hls/text-English"}));
    EXPECT_EQ(StreamSelection::choose(collection, {rendition("Klingon"), std::nullopt}, {}),
              (V{"hls/video-0", "hls/audio-English", "hls/text-English"}));
    EXPECT_TRUE(StreamSelection::matches("audio-French", "audio-", rendition("French")));
    EXPECT_FALSE(StreamSelection::matches("xaudio-French", "audio-", rendition("French")));
}

TEST(StreamSelectionTest, SubtitlesTurnedOffKeepTheTextStreamThatWasPlaying) {
    const std::vector<std::string> before = {"hls/audio-English", "hls/text-Deutsch",
                                             "hls/video-0"};
    const auto chosen = StreamSelection::choose(collection, {}, before);
    EXPECT_EQ(chosen.back(), "hls/text-Deutsch");
    EXPECT_EQ(StreamSelection::choose({{"v", Type::video}}, {rendition("x"), rendition("y")}, {}),
              std::vector<std::string>{"v"});
}

TEST(BusStatusMapperTest, ReportsTheFirstReasonThatHoldsPlaybackBack) {
    using Status = Player::TimeControlStatus;
    using Reason = Player::WaitingReason;
    BusStatusMapper::Facts facts;
    facts.rate = 1;
    facts.hasItem = true;
    facts.prerolled = true;
    facts.state = GST_STATE_PLAYING;
    const auto playing = BusStatusMapper::TimeControl{Status::playing, std::nullopt};
    EXPECT_EQ(BusStatusMapper::timeControl(facts), playing);

    auto with = [&](auto change) {
        auto changed = facts;
        change(changed);
        return BusStatusMapper::timeControl(changed);
    };
    const auto waiting = [](Reason reason) {
        return BusStatusMapper::TimeControl{Status::waitingToPlayAtSpecifiedRate, reason};
    };
    EXPECT_EQ(with([](auto& f) { f.rate = 0; }).status, Status::paused);
    EXPECT_EQ(with([](auto& f) { f.stopped = true; }).status, Status::paused);
    EXPECT_EQ(with([](auto& f) { f.hasItem = false; }), waiting(Reason::noItemToPlay));
    EXPECT_EQ(with([](auto& f) { f.prerolled = false; }), waiting(Reason::evaluatingBufferingRate));
    EXPECT_EQ(with([](auto& f) { f.seeking = f.buffering = true; }), waiting(Reason::seeking));
    EXPECT_EQ(with([](auto& f) { f.buffering = true; }), waiting(Reason::toMinimizeStalls));
    // On the way back to playing after a pause that never took effect: still playing.
    auto resuming = [&](Status reported) {
        return with([&](auto& f) {
            f.state = GST_STATE_PAUSED;
            f.pending = GST_STATE_PLAYING;
            f.reported.status = reported;
        });
    };
    EXPECT_EQ(resuming(Status::playing), playing);
    EXPECT_EQ(resuming(Status::paused), waiting(Reason::evaluatingBufferingRate));
}

TEST(VariantLimitsTest, CapsPickTheHighestVariantWithinThemAndAChosenOneIsFixed) {
    const std::vector<PlayerItemVariant> variants = {
        {.uri = "v0", .bandwidth = 400000, .width = 320, .height = 180},
        {.uri = "v1", .bandwidth = 600000, .width = 480, .height = 270},
        {.uri = "v2", .bandwidth = 1000000, .width = 640, .height = 360},
    };
    const auto none = std::pair{0, 0};
    EXPECT_EQ(VariantLimits::of(variants, 0, none, std::nullopt), VariantLimits{});
    // A bitrate cap alone is handed on as it is; a size cap becomes the bitrate of the highest
    // variant that fits both.
    EXPECT_EQ(VariantLimits::of(variants, 700000, none, std::nullopt),
              (VariantLimits{.maxBitrate = 700000, .startBitrate = 700000}));
    EXPECT_EQ(VariantLimits::of(variants, 0, {500, 300}, std::nullopt),
              (VariantLimits{.maxBitrate = 600000, .startBitrate = 600000}));
    EXPECT_EQ(VariantLimits::of(variants, 500000, {1920, 1080}, std::nullopt),
              (VariantLimits{.maxBitrate = 400000, .startBitrate = 400000}));
    // Nothing fits: the lowest variant plays.
    EXPECT_EQ(VariantLimits::of(variants, 0, {100, 100}, std::nullopt),
              (VariantLimits{.maxBitrate = 400000, .startBitrate = 400000}));
    // A chosen variant wins over the caps and does not follow the measured rate.
    EXPECT_EQ(VariantLimits::of(variants, 500000, {320, 180}, "v2"),
              (VariantLimits{.minBitrate = 1000000,
                             .maxBitrate = 1000000,
                             .connectionBitrate = 1000000,
                             .startBitrate = 1000000}));
    // One the item does not offer leaves switching to the caps.
    EXPECT_EQ(VariantLimits::of(variants, 500000, none, "v9"),
              (VariantLimits{.maxBitrate = 500000, .startBitrate = 500000}));
}

TEST(SubtitleStylingTest, LaterRulesWinAndColoursScaleToBytes) {
    EXPECT_EQ(SubtitleStyling::fontDescription({}), "Sans 18");
    TextStyleRule big;
    big.relativeFontSize = 150;
    big.bold = true;
    TextStyleRule serif;
    serif.fontFamilyName = "Serif";
    serif.italic = true;
    EXPECT_EQ(SubtitleStyling::fontDescription({big, serif}), "Serif Bold Italic 27");
    TextStyleRule tiny;
    tiny.relativeFontSize = 0;
    EXPECT_EQ(SubtitleStyling::fontDescription({tiny}), "Sans 1");
    EXPECT_EQ(SubtitleStyling::argb({1, 0, 0.5, 1}), 0xffff0080u);
    EXPECT_EQ(SubtitleStyling::argb({2, -1, 0, 0.5}), 0x80ff0000u);
}

// Hidden subtitles leave a subtitle overlay without a renderer, passing the video through. The
// cues that still reach it must not stop the queue in front of it: that queue's end of stream
// would then fail a pipeline that played to its end.
TEST(SubtitleStylingTest, CuesOfHiddenSubtitlesEndWithTheirStreamAndNotWithAnError) {
    GstPipelineSinks::initialize();
    GError* raw = nullptr;
    auto pipeline = retainGst(gst_parse_launch(
        "subtitleoverlay name=overlay ! fakesink sync=true "
        "videotestsrc num-buffers=10 ! video/x-raw,width=64,height=48,framerate=30/1 ! "
        "overlay.video_sink "
        "appsrc name=cues format=time caps=text/x-raw,format=utf8 ! queue ! overlay.subtitle_sink",
        &raw));
    GErrorPtr error(raw);
    ASSERT_TRUE(pipeline) << (error ? error->message : "");
    SubtitleStyling styling;
    GstRef<GstElement> overlay(gst_bin_get_by_name(GST_BIN(pipeline.get()), "overlay"));
    styling.adopt(overlay.get());
    GstRef<GstElement> cues(gst_bin_get_by_name(GST_BIN(pipeline.get()), "cues"));
    GstBuffer* cue = gst_buffer_new_memdup("Hello", 5);
    GST_BUFFER_PTS(cue) = 0;
    GST_BUFFER_DURATION(cue) = GST_SECOND;
    GstFlowReturn pushed = GST_FLOW_ERROR;
    g_signal_emit_by_name(cues.get(), "push-buffer", cue, &pushed);
    gst_buffer_unref(cue);
    g_signal_emit_by_name(cues.get(), "end-of-stream", &pushed);

    EXPECT_EQ(playUntilItEnds(pipeline.get()), "the end of the stream");
}

// Without a sound output, audio is taken at its pace in blocks of a tenth of a second, and the
// samples short of a block at the end are taken too.
TEST(SilentAudioSinkTest, TakesEverySampleInBlocksOfATenthOfASecond) {
    GstPipelineSinks::initialize();
    GError* raw = nullptr;
    auto pipeline = retainGst(gst_parse_launch(
        (std::string("audiotestsrc num-buffers=15 samplesperbuffer=1024 ! "
                     "audio/x-raw,format=F32LE,rate=48000,channels=2,layout=interleaved ! ") +
         GstPipelineSinks::silentAudioSink)
            .c_str(),
        &raw));
    GErrorPtr error(raw);
    ASSERT_TRUE(pipeline) << (error ? error->message : "");
    struct Taken {
        std::vector<guint64> samples;
        GstClockTime end = GST_CLOCK_TIME_NONE;
    } taken;
    GstIterator* sinks = gst_bin_iterate_sinks(GST_BIN(pipeline.get()));
    GValue item = G_VALUE_INIT;
    ASSERT_EQ(gst_iterator_next(sinks, &item), GST_ITERATOR_OK);
    GstRef<GstPad> pad(gst_element_get_static_pad(GST_ELEMENT(g_value_get_object(&item)), "sink"));
    g_value_unset(&item);
    gst_iterator_free(sinks);
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            auto* taken = static_cast<Taken*>(data);
            GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
            taken->samples.push_back(gst_buffer_get_size(buffer) / (2 * sizeof(float)));
            taken->end = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
            return GST_PAD_PROBE_OK;
        },
        &taken, nullptr);

    EXPECT_EQ(playUntilItEnds(pipeline.get()), "the end of the stream");
    EXPECT_EQ(taken.samples, (std::vector<guint64>{4800, 4800, 4800, 960}));
    EXPECT_EQ(taken.end, gst_util_uint64_scale(15 * 1024, GST_SECOND, 48000));
}

TEST(DecoderThreadsTest, PicturesUpToAQuarterOf1080pDecodeOnOneThread) {
    EXPECT_EQ(DecoderThreads::forPicture(640, 360), 1);
    EXPECT_EQ(DecoderThreads::forPicture(960, 540), 1);
    EXPECT_EQ(DecoderThreads::forPicture(1280, 720), DecoderThreads::automatic);
    EXPECT_EQ(DecoderThreads::forPicture(0, 0), DecoderThreads::automatic);

    // A real decoder takes the setting for each size its caps announce, both ways.
    GstPipelineSinks::initialize();
    auto decoder = retainGst(gst_element_factory_make(LibavVideoDecoder::factoryName, nullptr));
    ASSERT_TRUE(decoder);
    DecoderThreads::adopt(decoder.get());
    ASSERT_NE(gst_element_set_state(decoder.get(), GST_STATE_PAUSED), GST_STATE_CHANGE_FAILURE);
    GstRef<GstPad> sink(gst_element_get_static_pad(decoder.get(), "sink"));
    gst_pad_send_event(sink.get(), gst_event_new_stream_start("video"));
    auto threadsFor = [&](int width, int height) {
        GstCaps* caps = gst_caps_new_simple(
            "video/x-h264", "stream-format", G_TYPE_STRING, "byte-stream", "alignment",
            G_TYPE_STRING, "au", "width", G_TYPE_INT, width, "height", G_TYPE_INT, height, nullptr);
        gst_pad_send_event(sink.get(), gst_event_new_caps(caps));
        gst_caps_unref(caps);
        gint threads = -1;
        g_object_get(decoder.get(), "max-threads", &threads, nullptr);
        return threads;
    };
    EXPECT_EQ(threadsFor(320, 180), 1);
    EXPECT_EQ(threadsFor(1920, 1080), DecoderThreads::automatic);
    EXPECT_EQ(threadsFor(480, 270), 1);
    gst_element_set_state(decoder.get(), GST_STATE_NULL);
}

// Short clips with pictures reordered (B-frames) and a size that is no multiple of 16, in each
// way the engine's decoder receives them: H.264 in a transport stream (parameter sets in the
// stream), 10-bit, in fragmented MP4 (parameter sets in the caps), and H.265.
struct DecoderClip {
    const char* file;
    const char* demuxAndParse;
    const char* reference;  // gst-libav's decoder for it
};
constexpr DecoderClip decoderClips[] = {
    {"h264.ts", "tsdemux ! h264parse", "avdec_h264"},
    {"h264-10bit.ts", "tsdemux ! h264parse", "avdec_h264"},
    {"h264.mp4", "qtdemux ! h264parse", "avdec_h264"},
    {"hevc.mp4", "qtdemux ! h265parse", "avdec_h265"},
};

std::variant<std::filesystem::path, Error> decoderClipFolder() {
    const std::string pattern = "testsrc2=size=322x182:rate=25";
    const std::vector<std::vector<std::string>> encodes = {
        {"-c:v", "libx264", "-profile:v", "high", "-bf", "3", "-g", "20", "-pix_fmt", "yuv420p",
         "h264.ts"},
        {"-c:v", "libx264", "-profile:v", "high10", "-bf", "3", "-g", "20", "-pix_fmt",
         "yuv420p10le", "h264-10bit.ts"},
        {"-c:v", "libx264", "-bf", "3", "-g", "20", "-pix_fmt", "yuv420p", "-movflags",
         "+frag_keyframe+empty_moov+default_base_moof", "h264.mp4"},
        {"-c:v", "libx265", "-x265-params", "log-level=error:bframes=3:keyint=20", "-tag:v", "hvc1",
         "-pix_fmt", "yuv420p", "-movflags", "+frag_keyframe+empty_moov", "hevc.mp4"},
    };
    std::string recipe = "zm decoder clips 1; 2 s of " + pattern;
    for (const auto& encode : encodes) {
        recipe += ";";
        for (const auto& arg : encode) {
            recipe += " " + arg;
        }
    }
    return origin::ContentCache::prepare(
        origin::ContentCache::defaultRoot(), "decoder-clips-" + origin::ContentCache::hash(recipe),
        "recipe.txt", [&](const std::filesystem::path& folder) -> std::optional<Error> {
            std::error_code created;
            std::filesystem::create_directories(folder, created);
            for (const auto& encode : encodes) {
                std::vector<std::string> args = {"ffmpeg", "-v",    "error", "-f", "lavfi",
                                                 "-i",     pattern, "-t",    "2"};
                args.insert(args.end(), encode.begin(), encode.end() - 1);
                args.push_back((folder / encode.back()).string());
                if (auto error = origin::runTool(args, folder / "ffmpeg.log")) {
                    return error;
                }
            }
            return origin::writeTextFile(folder / "recipe.txt", recipe)
                       ? std::nullopt
                       : std::optional(origin::contentError("recipe.txt was not written"));
        });
}

// Each picture that reached the sink: its time, and a hash of its visible pixels.
struct Pictures {
    std::vector<std::pair<GstClockTime, std::uint64_t>> seen;
    guint mostMemories = 0;  // in one picture's buffer
    std::string outcome;
};

Pictures decodeClip(const std::filesystem::path& file, const std::string& demuxAndParse,
                    const std::string& decoder, bool sinkTakesAnyLayout) {
    GstPipelineSinks::initialize();
    const std::string description = "filesrc location=\"" + file.string() + "\" ! " +
                                    demuxAndParse + " ! " + decoder +
                                    " ! fakesink name=out sync=false signal-handoffs=true";
    GError* raw = nullptr;
    auto pipeline = retainGst(gst_parse_launch(description.c_str(), &raw));
    GErrorPtr error(raw);
    Pictures pictures;
    if (!pipeline) {
        pictures.outcome = error ? error->message : "no pipeline";
        return pictures;
    }
    GstRef<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "out"));
    if (sinkTakesAnyLayout) {
        LibavVideoDecoder::takeAnyLayout(sink.get());
    }
    g_signal_connect(
        sink.get(), "handoff",
        G_CALLBACK(+[](GstElement*, GstBuffer* buffer, GstPad* pad, gpointer data) {
            auto* pictures = static_cast<Pictures*>(data);
            GstCapsRef caps(gst_pad_get_current_caps(pad));
            GstVideoInfo info;
            GstVideoFrame frame;
            if (!caps || !gst_video_info_from_caps(&info, caps.get()) ||
                !gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
                pictures->seen.emplace_back(GST_BUFFER_PTS(buffer), 0);
                return;
            }
            std::uint64_t hash = 14695981039346656037ULL;
            for (guint c = 0; c < GST_VIDEO_FRAME_N_COMPONENTS(&frame); ++c) {
                const auto* row =
                    static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
                const int bytes =
                    GST_VIDEO_FRAME_COMP_WIDTH(&frame, c) * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c);
                for (int y = 0; y < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, c); ++y) {
                    for (int x = 0; x < bytes; ++x) {
                        hash = (hash ^ row[x]) * 1099511628211ULL;
                    }
                    row += GST_VIDEO_FRAME_COMP_STRIDE(&frame, c);
                }
            }
            gst_video_frame_unmap(&frame);
            pictures->seen.emplace_back(GST_BUFFER_PTS(buffer), hash);
            pictures->mostMemories = std::max(pictures->mostMemories, gst_buffer_n_memory(buffer));
        }),
        &pictures);
    pictures.outcome = playUntilItEnds(pipeline.get());
    return pictures;
}

// The engine's decoder gives the pictures that gst-libav's gives, at the same times: in its own
// memory (a memory per plane) to a sink that takes any layout, and copied into the plain layout
// for one that does not.
TEST(LibavVideoDecoderTest, DecodesLikeGstLibavInItsOwnMemoryOrCopied) {
    const auto folder = decoderClipFolder();
    ASSERT_TRUE(std::holds_alternative<std::filesystem::path>(folder))
        << std::get<Error>(folder).description();
    for (const auto& clip : decoderClips) {
        SCOPED_TRACE(clip.file);
        const auto file = std::get<std::filesystem::path>(folder) / clip.file;
        const Pictures reference = decodeClip(file, clip.demuxAndParse, clip.reference, false);
        ASSERT_EQ(reference.outcome, "the end of the stream");
        ASSERT_EQ(reference.seen.size(), 50u);
        for (const bool anyLayout : {true, false}) {
            const Pictures ours =
                decodeClip(file, clip.demuxAndParse, LibavVideoDecoder::factoryName, anyLayout);
            EXPECT_EQ(ours.outcome, "the end of the stream");
            EXPECT_EQ(ours.seen, reference.seen) << (anyLayout ? "uncopied" : "copied");
            if (anyLayout) {
                EXPECT_GT(ours.mostMemories, 1u);
            } else {
                EXPECT_EQ(ours.mostMemories, 1u);
            }
        }
    }
}

// A pipeline that records the seeks sent and numbers them like GStreamer does.
class RecordingPipeline : public SeekController::Pipeline {
public:
    guint32 sendFlushingSeek(MediaTime time, bool) override {
        sent.push_back(time.seconds());
        return refuse ? GST_SEQNUM_INVALID : ++seqnum;
    }
    MediaTime position() override { return MediaTime::make(7, 1); }
    void seekFinished(std::uint64_t id) override { finished.push_back(id); }
    void heldSeekSent() override { ++heldSent; }

    std::vector<double> sent;
    std::vector<std::uint64_t> finished;
    guint32 seqnum = 100;
    bool refuse = false;
    int heldSent = 0;
};

class SeekControllerTest : public ::testing::Test {
protected:
    std::shared_ptr<ManualScheduler> scheduler = ManualScheduler::create();
    ScopedStandardScheduler scopedScheduler{scheduler};
    std::shared_ptr<RecordingPipeline> pipeline = std::make_shared<RecordingPipeline>();
    std::shared_ptr<SeekController> seeks = std::make_shared<SeekController>(pipeline);
};

TEST_F(SeekControllerTest, OneSeekInFlightAndTheLatestWaitingReplacesTheOthers) {
    seeks->reset();
    seeks->request({1, MediaTime::make(10, 1), false});
    seeks->request({2, MediaTime::make(20, 1), false});
    seeks->request({3, MediaTime::make(30, 1), false});
    EXPECT_EQ(pipeline->sent, std::vector<double>{10});
    // An earlier message is not the seek's preroll; a later one is.
    EXPECT_FALSE(seeks->takePreroll(100, false));
    ASSERT_TRUE(seeks->takePreroll(102, false));
    seeks->finish();
    seeks->sendPending();
    EXPECT_EQ(pipeline->finished, std::vector<std::uint64_t>{1});
    EXPECT_EQ(pipeline->sent, (std::vector<double>{10, 30}));
    // A rate change seeks where playback is.
    ASSERT_TRUE(seeks->takePreroll(103, false));
    seeks->finish();
    seeks->request({std::nullopt, MediaTime::invalid(), true});
    EXPECT_EQ(pipeline->sent.back(), 7);
    EXPECT_EQ(pipeline->finished, (std::vector<std::uint64_t>{1, 3}));
}

// An item's start point is sought unless playback stands there or a host's seek waits.
TEST_F(SeekControllerTest, TheStartPointIsSoughtUnlessPlaybackIsThereOrTheHostSeeks) {
    seeks->reset();
    EXPECT_FALSE(seeks->startAt(std::nullopt));
    EXPECT_FALSE(seeks->startAt(SeekController::Seek{std::nullopt, MediaTime::make(7, 1), true}));
    EXPECT_TRUE(pipeline->sent.empty()) << "playback stands at 7 s already";
    seeks->defer({1, MediaTime::make(2, 1), false});
    EXPECT_FALSE(seeks->startAt(SeekController::Seek{std::nullopt, MediaTime::make(30, 1), true}));
    EXPECT_TRUE(pipeline->sent.empty()) << "the host's seek goes first";
    seeks->reset();
    EXPECT_TRUE(seeks->startAt(SeekController::Seek{std::nullopt, MediaTime::make(30, 1), true}));
    EXPECT_EQ(pipeline->sent, std::vector<double>{30});
    EXPECT_EQ(seeks->target().seconds(), 30);
    EXPECT_TRUE(pipeline->finished.empty()) << "no host's seek to finish";
}

TEST_F(SeekControllerTest, ARefusedSeekEndsAtOnceAndAFailedItemDropsTheWaitingOne) {
    pipeline->refuse = true;
    seeks->request({5, MediaTime::make(3, 1), true});
    EXPECT_EQ(pipeline->finished, std::vector<std::uint64_t>{5});
    EXPECT_FALSE(seeks->inFlight());
    pipeline->refuse = false;
    seeks->request({6, MediaTime::make(4, 1), true});
    seeks->request({7, MediaTime::make(5, 1), true});
    seeks->abandon();
    EXPECT_EQ(pipeline->finished, (std::vector<std::uint64_t>{5, 6}));
    EXPECT_FALSE(seeks->seeking());
    EXPECT_TRUE(seeks->takePreroll(200, true));
}

TEST_F(SeekControllerTest, ASeekWaitsForTheTransferUnderWayAndHoldsTheRequestThatFollows) {
    auto gate = std::make_shared<TransferGate>(scheduler);
    seeks->reset(gate);
    auto pass = gate->enter();
    ASSERT_TRUE(pass->write([] { return true; }));
    seeks->request({1, MediaTime::make(10, 1), false});
    scheduler->advance(std::chrono::milliseconds(200));
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(pipeline->sent.empty());
    EXPECT_TRUE(seeks->held());

    // The transfer ends and the stream asks for its next segment, which is held unanswered.
    pass.reset();
    std::atomic<bool> answered = false;
    std::shared_ptr<TransferGate::Pass> cancelled;
    std::thread next([&] {
        cancelled = gate->enter();
        answered = true;
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!gate->settled(1000) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    scheduler->advance(std::chrono::milliseconds(70));
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(pipeline->sent, std::vector<double>{10});
    EXPECT_EQ(pipeline->heldSent, 1);
    // The request the seek cancelled stays held until its connection has had time to go; one
    // made after the seek passes.
    EXPECT_FALSE(answered);
    EXPECT_TRUE(gate->enter()->write([] { return true; }));
    scheduler->advance(std::chrono::milliseconds(400));
    RunLoop::main().runUntilIdle();
    next.join();
    EXPECT_TRUE(answered);
    // Whatever becomes of the cancelled request's answer holds up no later seek.
    ASSERT_TRUE(seeks->takePreroll(1000, false));
    seeks->finish();
    seeks->request({2, MediaTime::make(20, 1), false});
    EXPECT_EQ(pipeline->sent, (std::vector<double>{10, 20}));
}

TEST_F(SeekControllerTest, ASeekWaitsOnlyAWhileForARequestAfterTheLastTransfer) {
    auto gate = std::make_shared<TransferGate>(scheduler);
    seeks->reset(gate);
    gate->enter()->write([] { return true; });
    // The stream may have ended: no request follows.
    seeks->request({1, MediaTime::make(10, 1), false});
    scheduler->advance(std::chrono::milliseconds(200));
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(pipeline->sent.empty());
    scheduler->advance(std::chrono::milliseconds(150));
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(pipeline->sent, std::vector<double>{10});
}

}  // namespace
}  // namespace zarvo
