#pragma once

#include <gst/gst.h>

namespace zarvo {

// An H.264 and H.265 decoder element over libavcodec whose pictures go downstream in the memory
// the decoder drew them in. gst-libav's decoders copy each picture out of libavcodec's memory
// into a buffer of their own (3 MB per 1080p picture, 150 MB a second at 1080p50); where they
// have libavcodec draw into their buffers instead, each picture is copied once more on its way
// out, as its buffer stays mapped while libavcodec keeps the picture as a reference. Here a
// picture's buffer holds a reference to the decoder's picture, and a video meta lays out its
// planes, so nothing is copied where the elements downstream read that meta. Where they do not,
// each picture is copied into the plain layout.
//
// The element has gst-libav's "max-threads" setting (0: libavcodec's own choice), and the rank
// above gst-libav's decoders, which decode the other formats.
class LibavVideoDecoder {
public:
    static constexpr const char* factoryName = "zmvideodecoder";

    // Registers the element in this process, once; whether it is registered.
    static bool registerElement();

    // Has `sink`, a sink that never reads the pictures (a fake sink that paces playback), take
    // them in any layout: it answers allocation queries with video metas, so that the decoder
    // hands its pictures over instead of copying them.
    static void takeAnyLayout(GstElement* sink);
};

}  // namespace zarvo
