#pragma once

#include <filesystem>

#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"

namespace zarvo {

// Writes and removes one session's file, named by the session's id in upper-case UUID text.
// Failures are swallowed: the call reports false and the session carries on in memory.
class ZMTrackingSessionStorageMechanism {
public:
    explicit ZMTrackingSessionStorageMechanism(Uuid sessionLocalId)
        : sessionLocalId_(sessionLocalId) {}

    const Uuid& sessionLocalId() const { return sessionLocalId_; }
    std::filesystem::path fileUrl() const;

    // Replaces the file with the encoded data. The text goes to a temporary file that is
    // renamed over the old one, so a reader (or a crash) only ever sees a whole document.
    bool save(const ZMTrackingSessionStorageData& data) const;
    bool remove() const;

private:
    Uuid sessionLocalId_;
};

}  // namespace zarvo
