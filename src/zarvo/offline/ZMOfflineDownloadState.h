#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// The life-cycle state of an offline download. The raw values are stored in the downloads JSON.
enum class ZMOfflineDownloadState : std::int64_t {
    /// Queued: made by startDownload() (or restarted) and not started yet.
    waiting = 0,
    /// Paused by ZMOfflineManager::pause() while downloading.
    paused = 1,
    /// Finished: the whole package is on disk (progress 1).
    completed = 2,
    /// Its task runs (or ran when its process ended; a new manager takes it back).
    downloading = 3,
    /// Its task ended with an error; the download stays listed until cancelled or restarted.
    failed = 4,
};

/// The state with this raw value; nothing for values outside 0 to 4.
ZARVO_EXPORT std::optional<ZMOfflineDownloadState> offlineDownloadStateFromRawValue(
    std::int64_t rawValue);

/// The raw value of `state`, as the downloads JSON stores it.
inline std::int64_t rawValue(ZMOfflineDownloadState state) {
    return static_cast<std::int64_t>(state);
}

/// The case name: "waiting", "paused", "completed", "downloading" or "failed".
ZARVO_EXPORT std::string name(ZMOfflineDownloadState state);

}  // namespace zarvo
