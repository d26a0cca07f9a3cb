#include "zarvo/media/gst/GstPipelineSinks.h"

#include <cstdlib>
#include <filesystem>
#include <gio/gio.h>
#include <mutex>
#include <thread>

#include "zarvo/media/gst/LibavVideoDecoder.h"
#include "zarvo/media/model/MediaError.h"

namespace zarvo {

namespace {

Error missing(const std::string& element, const std::string& package) {
    return makeMediaError(
        MediaError::missingElement,
        "The GStreamer element \"" + element + "\" is missing (install " + package + ").");
}

// Whether the machine has a sound output to send audio to.
bool hasAudioOutput() {
    namespace fs = std::filesystem;
    std::error_code error;
    if (fs::exists("/dev/snd", error)) {
        return true;
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr) {
        return false;
    }
    return fs::exists(fs::path(runtime) / "pulse" / "native", error) ||
           fs::exists(fs::path(runtime) / "pipewire-0", error);
}

// A sink made from a pipeline description, or an error that names `origin`.
GstRef<GstElement> sinkFromDescription(const char* description, const std::string& origin,
                                       std::optional<Error>& error) {
    GError* raw = nullptr;
    GstElement* bin = gst_parse_bin_from_description(description, TRUE, &raw);
    GErrorPtr parseError(raw);
    if (bin == nullptr) {
        error = makeMediaError(MediaError::missingElement,
                               origin + " (\"" + description + "\") does not make a sink: " +
                                   (parseError ? parseError->message : "unknown element") + ".");
        return GstRef<GstElement>();
    }
    return retainGst(bin);
}

// A sink from a pipeline description in the environment, or nothing.
std::optional<GstRef<GstElement>> sinkFromEnvironment(const char* variable,
                                                      std::optional<Error>& error) {
    const char* description = std::getenv(variable);
    if (description == nullptr || *description == '\0') {
        return std::nullopt;
    }
    return sinkFromDescription(description, variable, error);
}

GstRef<GstElement> makeElement(const char* factory, const char* name = nullptr) {
    return retainGst(gst_element_factory_make(factory, name));
}

// A video sink that takes pictures at their time. Quality-of-service events from it tell the
// decoders upstream how late the pictures come, so that they can drop some.
GstRef<GstElement> syncedFakeVideoSink() {
    auto sink = makeElement("fakesink", "zm-video-sink");
    if (sink) {
        g_object_set(sink.get(), "sync", TRUE, "qos", TRUE, nullptr);
        LibavVideoDecoder::takeAnyLayout(sink.get());
    }
    return sink;
}

// The plugins that HLS playback meets on its way to the first picture, in that order. Left to
// the pipeline, its threads load them one after another as they get there, which makes the
// first item of a process start tens of milliseconds later. A thread of their own loads them
// while the caller sets the player up and the entry playlist is fetched; plugin loads share one
// lock, so a pipeline that gets to a plugin first loads it itself, and the order matters.
constexpr const char* playbackPlugins[] = {
    "playback",          "coreelements",   "audiofx",     "curl",
    "typefindfunctions", "adaptivedemux2", "mpegtsdemux", "videoparsersbad",
    "audioparsers",      "subparse",       "libav",       "videofilter",
    "videoconvertscale", "audioconvert",   "volume",      "audioresample",
};

// Loads the plugins above; joined at exit, so that nothing is loading while the process ends.
class PluginPreloader {
public:
    PluginPreloader()
        : thread_([] {
              // The demuxer's first download looks up the machine's proxy settings, which loads
              // GIO's resolver modules and their settings backend. That takes no plugin lock, and
              // the first plugins are loaded by the caller while it takes place.
              g_proxy_resolver_get_default();
              for (const char* name : playbackPlugins) {
                  if (GstPlugin* plugin = gst_plugin_load_by_name(name)) {
                      gst_object_unref(plugin);
                  }
              }
          }) {}
    ~PluginPreloader() { thread_.join(); }
    PluginPreloader(const PluginPreloader&) = delete;
    PluginPreloader& operator=(const PluginPreloader&) = delete;

private:
    std::thread thread_;
};

// A thread that runs GstPipelineSinks::initialize(); joined at exit.
class BackgroundStart {
public:
    BackgroundStart() : thread_([] { GstPipelineSinks::initialize(); }) {}
    ~BackgroundStart() { thread_.join(); }
    BackgroundStart(const BackgroundStart&) = delete;
    BackgroundStart& operator=(const BackgroundStart&) = delete;

private:
    std::thread thread_;
};

}  // namespace

void GstPipelineSinks::prepare() {
    static BackgroundStart start;
}

void GstPipelineSinks::initialize() {
    static std::once_flag once;
    std::call_once(once, [] {
        gst_init(nullptr, nullptr);
        LibavVideoDecoder::registerElement();
        static PluginPreloader preloader;
        // playbin3 reads the entry playlist from our loopback server with the highest-ranked HTTP
        // source. curlhttpsrc goes first: souphttpsrc (libsoup 3) can crash when its session
        // thread closes a stream while the pipeline tears it down.
        GstRef<GstElementFactory> curl(gst_element_factory_find("curlhttpsrc"));
        if (curl) {
            gst_plugin_feature_set_rank(GST_PLUGIN_FEATURE(curl.get()), GST_RANK_PRIMARY + 1);
        }
    });
}

std::optional<Error> GstPipelineSinks::make(GstPipelineSinks& out) {
    initialize();
    struct Needed {
        const char* element;
        const char* package;
    };
    // What HLS playback of the streams we serve needs beyond playbin3 itself.
    static constexpr Needed needed[] = {
        {"playbin3", "gstreamer1.0-plugins-base"},
        {"hlsdemux2", "gstreamer1.0-plugins-good"},
        {"curlhttpsrc", "gstreamer1.0-plugins-bad"},
        {"tsdemux", "gstreamer1.0-plugins-bad"},
        {"h264parse", "gstreamer1.0-plugins-bad"},
        {"avdec_aac", "gstreamer1.0-libav"},
        {"fakesink", "libgstreamer1.0-0"},
        {"audiobuffersplit", "gstreamer1.0-plugins-bad"},
    };
    for (const auto& [element, package] : needed) {
        GstRef<GstElementFactory> factory(gst_element_factory_find(element));
        if (!factory) {
            return missing(element, package);
        }
    }
    out.playbin = makeElement("playbin3");
    if (!out.playbin) {
        return missing("playbin3", "gstreamer1.0-plugins-base");
    }
    std::optional<Error> error;
    if (auto sink = sinkFromEnvironment("ZM_VIDEO_SINK", error)) {
        out.videoSink = std::move(*sink);
    } else if ((out.windows = GstVideoOutputs::make())) {
        out.videoSink = retainGst(out.windows->sink());
    } else {
        out.videoSink = syncedFakeVideoSink();
    }
    if (error) {
        return error;
    }
    if (auto sink = sinkFromEnvironment("ZM_AUDIO_SINK", error)) {
        out.audioSink = std::move(*sink);
    } else if (hasAudioOutput()) {
        out.audioSink = makeElement("autoaudiosink", "zm-audio-sink");
    }
    if (error) {
        return error;
    }
    if (!out.audioSink) {
        out.audioSink = sinkFromDescription(silentAudioSink, "The silent audio sink", error);
        if (out.audioSink) {
            gst_object_set_name(GST_OBJECT(out.audioSink.get()), "zm-audio-sink");
        }
    }
    return error;
}

}  // namespace zarvo
