#pragma once

#include <optional>
#include <string>

#include <gst/gst.h>

#include "zarvo/media/GstHandle.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

// The elements a player's pipeline needs, made once per player: playbin3, a video sink (a
// synchronised fake sink until a view gives a real one) and an audio sink (the machine's
// default output when it has one, else a synchronised fake sink). ZM_VIDEO_SINK and
// ZM_AUDIO_SINK replace the sinks with pipeline descriptions ("fakesink sync=true").
struct GstPipelineSinks {
    GstRef<GstElement> playbin;
    GstRef<GstElement> videoSink;
    GstRef<GstElement> audioSink;

    // The elements, or an error naming the one that is missing.
    static std::optional<Error> make(GstPipelineSinks& out);
    // GStreamer started once per process (its registry loaded).
    static void initialize();
};

}  // namespace zarvo
