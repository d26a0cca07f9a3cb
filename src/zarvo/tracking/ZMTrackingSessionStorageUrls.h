#pragma once

#include <filesystem>

namespace zarvo {

// Where stored session files live: "TrackingSessions" in the user's caches folder.
struct ZMTrackingSessionStorageUrls {
    static std::filesystem::path directory();
};

}  // namespace zarvo
