#pragma once

#include <mutex>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/VariantLimits.h"

namespace zarvo {

// Holds the current item's hlsdemux2 to its variant limits: those set before the demuxer is
// made are given to it as playbin3 sets it up (on a streaming thread), later ones at once.
class DemuxerVariantLimiter {
public:
    // Any thread: `element` was set up in the pipeline.
    void adopt(GstElement* element);
    void set(const VariantLimits& limits);
    // A new item: the last one's demuxer goes, and the next one is held to `limits`.
    void reset(const VariantLimits& limits);

private:
    std::mutex mutex_;
    GstRef<GstElement> demuxer_;
    VariantLimits limits_;
};

}  // namespace zarvo
