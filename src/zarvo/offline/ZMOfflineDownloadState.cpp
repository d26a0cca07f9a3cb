#include "zarvo/offline/ZMOfflineDownloadState.h"

namespace zarvo {

std::optional<ZMOfflineDownloadState> offlineDownloadStateFromRawValue(std::int64_t rawValue) {
    if (rawValue < 0 || rawValue > 4) {
        return std::nullopt;
    }
    return static_cast<ZMOfflineDownloadState>(rawValue);
}

std::string name(ZMOfflineDownloadState state) {
    switch (state) {
        case ZMOfflineDownloadState::waiting:
            return "waiting";
        case ZMOfflineDownloadState::paused:
            return "paused";
        case ZMOfflineDownloadState::completed:
            return "completed";
        case ZMOfflineDownloadState::downloading:
            return "downloading";
        case ZMOfflineDownloadState::failed:
            return "failed";
    }
    return "unknown";
}

}  // namespace zarvo
