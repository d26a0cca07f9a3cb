#pragma once

#include <memory>
#include <mutex>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingNetworkOperation.h"
#include "zarvo/tracking/ZMTrackingSessionStorage.h"

namespace zarvo {

// A session read back from its file by the restore manager, to send what it left pending.
class ZARVO_EXPORT ZMTrackingStoredSession {
public:
    ZMTrackingStoredSession(Uuid sessionLocalId, ZMTrackingSessionStorageData storageData);

    const Uuid& sessionLocalId() const { return sessionLocalId_; }
    // The stored copy; touched by one send at a time.
    ZMTrackingSessionStorage& storage() { return storage_; }
    const ZMTrackingSessionStorage& storage() const { return storage_; }

    // True once the restore manager took the session on in this run.
    bool ongoing() const;
    void setOngoing(bool ongoing);

    std::shared_ptr<ZMTrackingNetworkOperation> networkOperation() const;
    void setNetworkOperation(std::shared_ptr<ZMTrackingNetworkOperation> operation);
    // Made on first use, with the default configuration.
    std::shared_ptr<UrlSession> urlSession();

private:
    const Uuid sessionLocalId_;
    ZMTrackingSessionStorage storage_;
    mutable std::mutex mutex_;
    bool ongoing_ = false;
    std::shared_ptr<ZMTrackingNetworkOperation> networkOperation_;
    std::shared_ptr<UrlSession> urlSession_;
};

}  // namespace zarvo
