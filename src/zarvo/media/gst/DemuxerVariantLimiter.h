#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/VariantLimits.h"

namespace zarvo {

class PlayerItem;

// Holds the current item's hlsdemux2 to its variant limits. The limits come from the item's
// preferences (set on the main thread) and the variants of its master, which the resource
// session hands over on its own thread before the master goes out: the demuxer, made once it
// has read the master, picks its first variant within them.
class DemuxerVariantLimiter {
public:
    struct Preferences {
        double peakBitRate = 0;
        std::pair<int, int> maximumResolution{0, 0};
        std::optional<std::string> chosenUri;

        static Preferences of(const PlayerItem& item);
    };

    // Any thread: `element` was set up in the pipeline.
    void adopt(GstElement* element);
    // The current item's preferences changed.
    void set(const Preferences& preferences);
    // A new item: the last one's demuxer and variants go, and the next one is held to
    // `preferences`. Returns the number that the new item's variants come with.
    std::uint64_t reset(const Preferences& preferences);
    // Any thread: the variants of item `item`'s master, which is about to be served; those of
    // an item that has since been replaced are ignored.
    void setVariants(std::uint64_t item, std::vector<PlayerItemVariant> variants);

private:
    void applyLocked();

    std::mutex mutex_;
    GstRef<GstElement> demuxer_;
    Preferences preferences_;
    std::vector<PlayerItemVariant> variants_;
    std::uint64_t item_ = 0;
};

}  // namespace zarvo
