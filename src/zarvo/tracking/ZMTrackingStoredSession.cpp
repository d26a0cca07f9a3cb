#include "zarvo/tracking/ZMTrackingStoredSession.h"

#include <utility>

namespace zarvo {

ZMTrackingStoredSession::ZMTrackingStoredSession(Uuid sessionLocalId,
                                                 ZMTrackingSessionStorageData storageData)
    : sessionLocalId_(sessionLocalId), storage_(sessionLocalId, std::move(storageData)) {}

bool ZMTrackingStoredSession::ongoing() const {
    std::lock_guard lock(mutex_);
    return ongoing_;
}

void ZMTrackingStoredSession::setOngoing(bool ongoing) {
    std::lock_guard lock(mutex_);
    ongoing_ = ongoing;
}

std::shared_ptr<ZMTrackingNetworkOperation> ZMTrackingStoredSession::networkOperation() const {
    std::lock_guard lock(mutex_);
    return networkOperation_;
}

void ZMTrackingStoredSession::setNetworkOperation(
    std::shared_ptr<ZMTrackingNetworkOperation> operation) {
    std::lock_guard lock(mutex_);
    networkOperation_ = std::move(operation);
}

std::shared_ptr<UrlSession> ZMTrackingStoredSession::urlSession() {
    std::lock_guard lock(mutex_);
    if (!urlSession_) {
        urlSession_ = UrlSession::make(UrlSessionConfiguration::defaultConfiguration());
    }
    return urlSession_;
}

}  // namespace zarvo
