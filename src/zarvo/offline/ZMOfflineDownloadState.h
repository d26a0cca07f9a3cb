#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// The life-cycle state of an offline download. The raw values are stored in the downloads JSON.
enum class ZMOfflineDownloadState : std::int64_t {
    waiting = 0,
    paused = 1,
    completed = 2,
    downloading = 3,
    failed = 4,
};

// The state with this raw value; nothing for values outside 0 to 4.
ZARVO_EXPORT std::optional<ZMOfflineDownloadState> offlineDownloadStateFromRawValue(
    std::int64_t rawValue);

inline std::int64_t rawValue(ZMOfflineDownloadState state) {
    return static_cast<std::int64_t>(state);
}

// The case name: "waiting", "paused", "completed", "downloading" or "failed".
ZARVO_EXPORT std::string name(ZMOfflineDownloadState state);

}  // namespace zarvo
