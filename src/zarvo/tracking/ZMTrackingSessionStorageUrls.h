#pragma once

#include <filesystem>

#include "zarvo/platform/Export.h"

namespace zarvo {

// Where stored session files live: "TrackingSessions" in the user's caches folder.
struct ZARVO_EXPORT ZMTrackingSessionStorageUrls {
    static std::filesystem::path directory();
    // Where a save writes its file before moving it into directory(): a sibling on the same
    // file system, so that a restore clearing the session folder never takes a file that
    // another process is in the middle of writing.
    static std::filesystem::path savingDirectory();
};

}  // namespace zarvo
