#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

#include "zarvo/platform/AppDirectories.h"

namespace zarvo {

std::filesystem::path ZMTrackingSessionStorageUrls::directory() {
    return AppDirectories::caches() / "TrackingSessions";
}

}  // namespace zarvo
