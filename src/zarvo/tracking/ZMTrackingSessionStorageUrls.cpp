#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

#include "zarvo/platform/AppDirectories.h"

namespace zarvo {

std::filesystem::path ZMTrackingSessionStorageUrls::directory() {
    return AppDirectories::caches() / "TrackingSessions";
}

std::filesystem::path ZMTrackingSessionStorageUrls::savingDirectory() {
    return AppDirectories::caches() / "TrackingSessions.saving";
}

}  // namespace zarvo
