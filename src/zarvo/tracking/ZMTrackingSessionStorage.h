#pragma once

#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"
#include "zarvo/tracking/ZMTrackingSessionStorageMechanism.h"

namespace zarvo {

// A session's stored copy: the data, changed in place, and the file it is written to.
// Not synchronised: its owner serialises access (a live session on its state queue).
class ZMTrackingSessionStorage {
public:
    ZMTrackingSessionStorage(Uuid sessionLocalId, ZMTrackingSessionStorageData storageData)
        : storageData(std::move(storageData)), mechanism_(sessionLocalId) {}

    const Uuid& sessionLocalId() const { return mechanism_.sessionLocalId(); }

    // Writes storageData to the file; false when it could not be written.
    bool save() const { return mechanism_.save(storageData); }
    bool remove() const { return mechanism_.remove(); }
    const ZMTrackingSessionStorageMechanism& mechanism() const { return mechanism_; }

    ZMTrackingSessionStorageData storageData;

private:
    ZMTrackingSessionStorageMechanism mechanism_;
};

}  // namespace zarvo
