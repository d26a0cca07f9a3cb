#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zarvo {

// The longest bodies the SDK takes, so that a server sending without end cannot grow the process
// or fill the disk without end. A longer one fails its request with
// UrlError::dataLengthExceedsMaximum.
struct ResponseLimits {
    // A master or media playlist (a day of 2-second segments is well under 1 MiB).
    static constexpr std::size_t playlist = 16 * 1024 * 1024;
    // A content key, a key request's answer from a licence server, an application certificate.
    static constexpr std::size_t keyAnswer = 16 * 1024 * 1024;

    // A segment (or initialization section) of `mediaSeconds`, of a variant whose peak bitrate
    // is `peakBitrate` when it is known: eight times that rate, else 128 Mbit/s (above the
    // bitrate of any stream), and at least 4 MiB, so that only a broken or endless body
    // reaches it.
    static std::size_t segment(double mediaSeconds,
                               std::optional<std::int64_t> peakBitrate = std::nullopt) {
        constexpr std::size_t least = 4 * 1024 * 1024;
        const double bytesPerSecond =
            peakBitrate && *peakBitrate > 0 ? 8.0 * static_cast<double>(*peakBitrate) / 8 : 16e6;
        const double seconds =
            std::isfinite(mediaSeconds) ? std::clamp(mediaSeconds, 0.0, 3600.0) : 0.0;
        return std::max(least, static_cast<std::size_t>(seconds * bytesPerSecond));
    }
};

}  // namespace zarvo
