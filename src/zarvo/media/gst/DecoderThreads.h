#pragma once

#include <gst/gst.h>

namespace zarvo {

// The threads that a software video decoder (gst-libav's) decodes with, set from the size of
// the pictures it is about to decode. Each frame thread holds a copy of the decoder's state and
// its own reference pictures, and the first picture comes out only once every thread has had
// one to decode. Pictures of up to a quarter of 1080p decode many times faster than real time on
// one thread, so they get one: less memory, an earlier first picture and no hand-offs between
// threads. Larger ones keep the decoder's own choice, which follows the number of processors.
class DecoderThreads {
public:
    static constexpr int automatic = 0;  // the decoder's own choice

    // The thread setting for `width` x `height` pictures; automatic when the size is unknown.
    static int forPicture(int width, int height);

    // When `element` is a video decoder with a thread setting, sets it from the size that each
    // caps event announces, before the decoder opens for those caps. An adaptive switch to
    // another size reopens the decoder, which then takes the setting for the new size.
    static void adopt(GstElement* element);

private:
    static GstPadProbeReturn onCaps(GstPad* pad, GstPadProbeInfo* info, gpointer);
};

}  // namespace zarvo
