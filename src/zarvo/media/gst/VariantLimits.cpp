#include "zarvo/media/gst/VariantLimits.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace zarvo {

namespace {

guint clampedRate(double bitsPerSecond) {
    constexpr double highest = std::numeric_limits<guint>::max();
    return static_cast<guint>(std::clamp(bitsPerSecond, 0.0, highest));
}

bool fits(const PlayerItemVariant& variant, std::pair<int, int> maximum) {
    // A variant that does not say its size is let through.
    return variant.width == 0 || variant.height == 0 ||
           (variant.width <= maximum.first && variant.height <= maximum.second);
}

}  // namespace

VariantLimits VariantLimits::of(const std::vector<PlayerItemVariant>& variants, double peakBitRate,
                                std::pair<int, int> maximumResolution,
                                const std::optional<std::string>& chosenUri) {
    VariantLimits limits;
    if (chosenUri) {
        auto chosen = std::find_if(variants.begin(), variants.end(),
                                   [&](const auto& variant) { return variant.uri == *chosenUri; });
        if (chosen != variants.end() && chosen->bandwidth > 0) {
            const guint bandwidth = clampedRate(static_cast<double>(chosen->bandwidth));
            limits.minBitrate = bandwidth;
            limits.maxBitrate = bandwidth;
            limits.startBitrate = bandwidth;
            limits.connectionBitrate = bandwidth;
            return limits;
        }
    }
    const bool sized = maximumResolution.first > 0 && maximumResolution.second > 0;
    if (!sized) {
        limits.maxBitrate = clampedRate(peakBitRate);
        limits.startBitrate = limits.maxBitrate;
        return limits;
    }
    // The highest variant within both limits; the lowest when none is.
    std::int64_t highest = 0;
    std::int64_t lowest = std::numeric_limits<std::int64_t>::max();
    for (const auto& variant : variants) {
        if (variant.bandwidth <= 0) {
            continue;
        }
        lowest = std::min(lowest, variant.bandwidth);
        const bool withinPeak =
            peakBitRate <= 0 || static_cast<double>(variant.bandwidth) <= peakBitRate;
        if (withinPeak && fits(variant, maximumResolution)) {
            highest = std::max(highest, variant.bandwidth);
        }
    }
    if (highest == 0 && lowest != std::numeric_limits<std::int64_t>::max()) {
        highest = lowest;
    }
    limits.maxBitrate =
        highest > 0 ? clampedRate(static_cast<double>(highest)) : clampedRate(peakBitRate);
    limits.startBitrate = limits.maxBitrate;
    return limits;
}

std::vector<PlayerItemVariant> VariantLimits::variantsOf(
    const HlsPlaylistRewriter::Result& master) {
    std::vector<PlayerItemVariant> variants;
    for (const auto& variant : master.variants) {
        if (variant.isIFrameOnly) {
            continue;
        }
        PlayerItemVariant entry{.uri = variant.url.absoluteString(),
                                .bandwidth = variant.bandwidth,
                                .averageBandwidth = variant.averageBandwidth,
                                .codecs = variant.codecs.value_or(""),
                                .frameRate = variant.frameRate};
        int width = 0;
        int height = 0;
        char separator = 0;
        if (variant.resolution &&
            std::sscanf(variant.resolution->c_str(), "%d%c%d", &width, &separator, &height) == 3 &&
            separator == 'x' && width > 0 && height > 0) {
            entry.width = width;
            entry.height = height;
        }
        variants.push_back(std::move(entry));
    }
    return variants;
}

void VariantLimits::applyTo(GstElement* demuxer) const {
    g_object_set(demuxer, "min-bitrate", minBitrate, "max-bitrate", maxBitrate,
                 "connection-bitrate", connectionBitrate, "start-bitrate", startBitrate, nullptr);
}

}  // namespace zarvo
