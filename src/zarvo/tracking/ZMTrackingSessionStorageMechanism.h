#pragma once

#include <filesystem>
#include <system_error>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"

namespace zarvo {

// Writes and removes one session's file, named by the session's id in upper-case UUID text.
// Failures are not raised: the call returns the error and the session carries on in memory.
class ZARVO_EXPORT ZMTrackingSessionStorageMechanism {
public:
    explicit ZMTrackingSessionStorageMechanism(Uuid sessionLocalId)
        : sessionLocalId_(sessionLocalId) {}

    const Uuid& sessionLocalId() const { return sessionLocalId_; }
    std::filesystem::path fileUrl() const;

    // Replaces the file with the encoded data; the error when it could not. The text goes to
    // a temporary file in the saving folder that is renamed over the old one, so a reader
    // (or a crash) only ever sees a whole document.
    std::error_code save(const ZMTrackingSessionStorageData& data) const;
    bool remove() const;

private:
    Uuid sessionLocalId_;
};

}  // namespace zarvo
