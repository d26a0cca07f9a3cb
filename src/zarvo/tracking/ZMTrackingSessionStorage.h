#pragma once

#include <system_error>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"
#include "zarvo/tracking/ZMTrackingSessionStorageMechanism.h"

namespace zarvo {

// A session's stored copy: the data, changed in place, and the file it is written to.
// Not synchronised: its owner serialises access (a live session on its state queue).
class ZARVO_EXPORT ZMTrackingSessionStorage {
public:
    ZMTrackingSessionStorage(Uuid sessionLocalId, ZMTrackingSessionStorageData storageData)
        : storageData(std::move(storageData)), mechanism_(sessionLocalId) {}

    const Uuid& sessionLocalId() const { return mechanism_.sessionLocalId(); }

    // Writes storageData to the file; false when it could not be written. A failed save
    // stays in lastError() until a later one succeeds: every change writes the whole data,
    // so the next change retries it.
    bool save() const {
        lastError_ = mechanism_.save(storageData);
        return !lastError_;
    }
    const std::error_code& lastError() const { return lastError_; }
    bool remove() const { return mechanism_.remove(); }
    const ZMTrackingSessionStorageMechanism& mechanism() const { return mechanism_; }

    ZMTrackingSessionStorageData storageData;

private:
    ZMTrackingSessionStorageMechanism mechanism_;
    mutable std::error_code lastError_;
};

}  // namespace zarvo
