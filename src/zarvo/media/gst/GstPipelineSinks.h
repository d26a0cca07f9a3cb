#pragma once

#include <memory>
#include <optional>
#include <string>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/GstVideoOutputs.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

// The elements a player's pipeline needs, made once per player: playbin3, a video sink (the
// windows of the views that show the player, over a synchronised fake sink) and an audio sink
// (the machine's default output when it has one, else silentAudioSink).
// ZM_VIDEO_SINK and ZM_AUDIO_SINK replace the sinks with pipeline descriptions
// ("fakesink sync=true"); views then show nothing.
struct GstPipelineSinks {
    // Where audio goes on a machine without a sound output: nowhere, at the pace it would be
    // heard. Gathered into blocks of a tenth of a second, it waits for the clock ten times a
    // second instead of once for each decoded frame (47 times at 48 kHz), and each of those
    // waits woke a thread. Quality-of-service events are left out: audio is never dropped.
    static constexpr const char* silentAudioSink =
        "audiobuffersplit output-buffer-duration=1/10 ! fakesink sync=true qos=false";

    GstRef<GstElement> playbin;
    GstRef<GstElement> videoSink;
    GstRef<GstElement> audioSink;
    std::shared_ptr<GstVideoOutputs> windows;  // none with ZM_VIDEO_SINK

    // The elements, or an error naming the one that is missing.
    static std::optional<Error> make(GstPipelineSinks& out);
    // GStreamer started once per process (its registry loaded).
    static void initialize();
    // Starts initialize() on a thread of its own, once per process: a player made before its
    // first item finds GStreamer started, and the plugins of HLS playback loading, when the item
    // comes. Callers of initialize() meanwhile wait for it to end.
    static void prepare();
};

}  // namespace zarvo
