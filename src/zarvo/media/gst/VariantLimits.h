#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/media/model/PlayerItemVariant.h"

namespace zarvo {

// The bitrate bounds that keep hlsdemux2's adaptive switching within an item's limits (a peak
// bitrate, a largest picture) or on the one variant chosen. The demuxer picks the highest
// variant whose BANDWIDTH lies within [min, max] of the rate it measures, capped at max. A
// fixed connection rate replaces the measured one and the bounds (hlsdemux2 in 1.22 picks the
// highest variant at or below it): a chosen variant's own BANDWIDTH keeps it on that one.
struct VariantLimits {
    guint minBitrate = 0;         // 0: none
    guint maxBitrate = 0;         // 0: none
    guint connectionBitrate = 0;  // 0: measured
    guint startBitrate = 0;       // 0: the demuxer's own first choice

    static VariantLimits of(const std::vector<PlayerItemVariant>& variants, double peakBitRate,
                            std::pair<int, int> maximumResolution,
                            const std::optional<std::string>& chosenUri);
    // The variants a master offers, as an item lists them (I-frame-only ones left out).
    static std::vector<PlayerItemVariant> variantsOf(const HlsPlaylistRewriter::Result& master);

    // Sets them on a hlsdemux2; later segments follow them.
    void applyTo(GstElement* demuxer) const;

    bool operator==(const VariantLimits&) const = default;
};

}  // namespace zarvo
