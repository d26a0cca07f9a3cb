#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/VariantLimits.h"
#include "zarvo/media/loopback/ResourceSession.h"

namespace zarvo {

class PlayerItem;

// Holds the current item's hlsdemux2 to its variant limits. The limits come from the item's
// preferences (set on the main thread) and the variants of its master, which the resource
// session hands over on its own thread before the master goes out: the demuxer, made once it
// has read the master, picks its first variant within them.
class DemuxerVariantLimiter : public std::enable_shared_from_this<DemuxerVariantLimiter> {
public:
    // Any thread: `element` was set up in the pipeline.
    void adopt(GstElement* element);
    // The current item's preferences (peak bitrate, largest picture, chosen variant) changed.
    void set(const PlayerItem& item);
    // A new item: the last one's demuxer and variants go, and `item` is held to its
    // preferences. Returns what the item's resource session calls with its master; a master of
    // an item that has since been replaced changes nothing.
    ResourceSession::MasterServing reset(const PlayerItem& item);

private:
    struct Preferences {
        double peakBitRate = 0;
        std::pair<int, int> maximumResolution{0, 0};
        std::optional<std::string> chosenUri;

        static Preferences of(const PlayerItem& item);
    };

    void setVariants(std::uint64_t item, std::vector<PlayerItemVariant> variants);
    void applyLocked();

    std::mutex mutex_;
    GstRef<GstElement> demuxer_;
    Preferences preferences_;
    std::vector<PlayerItemVariant> variants_;
    std::uint64_t item_ = 0;
};

}  // namespace zarvo
