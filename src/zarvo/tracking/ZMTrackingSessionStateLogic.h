#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMInternalTrackingEvent.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionEventsContainer.h"
#include "zarvo/tracking/ZMTrackingSessionNetworkState.h"
#include "zarvo/tracking/ZMTrackingSessionObjectLifecycle.h"
#include "zarvo/tracking/ZMTrackingSessionState.h"
#include "zarvo/tracking/ZMTrackingSessionStorage.h"

namespace zarvo {

// The decisions of a tracking session: its network state, lifecycle, pending events and
// stored file. Every operation runs synchronously on the serial "SynchronizationQueue", so
// callers on any thread (the application, URL session completions, timers) see one order.
class ZARVO_EXPORT ZMTrackingSessionStateLogic {
public:
    using RetryHandler = std::function<void()>;

    explicit ZMTrackingSessionStateLogic(std::shared_ptr<ZMTrackingSessionStorage> storage);

    // Called asynchronously on the main queue when a failed beacon is to be retried.
    void setSessionInitializationRetryHandler(RetryHandler handler);
    void setSendEventsRetryHandler(RetryHandler handler);

    // True when the initialisation beacon is to be sent now (first start only).
    bool start();
    // True when a failed initialisation is to be sent again.
    bool retryStart();
    // Stores the event while the session is taking events; drops it otherwise.
    void addEvent(ZMInternalTrackingEvent event);
    // The batch to send now (50 while running, everything once finishing), or none. A
    // non-empty batch moves the network state to sendingEvents.
    std::vector<ZMInternalTrackingEvent> takeEventsToSend();
    // Results of beacons; nothing means success. Once cancelled, results change nothing.
    void handleInitializationResult(const std::optional<ZMTrackingSessionError>& failure);
    void handleEventsResult(const std::optional<ZMTrackingSessionError>& failure,
                            std::size_t batchCount);
    // Finishes after sending what is pending, keeping `container` alive until then.
    void markSendAllAndFinish(std::shared_ptr<ZMTrackingSession> container);
    // Stops everything and removes the stored file.
    void cancel();

    ZMTrackingSessionState state() const;
    std::optional<ZMTrackingSessionError> lastError() const;
    ZMTrackingSessionNetworkStateValue networkStateValue() const;
    std::size_t pendingEventsCount() const;

private:
    bool isCancelled() const {
        return objectLifecycle_.state == ZMTrackingSessionObjectLifecycleState::markedAsFinishing;
    }
    ZMTrackingSessionEventsContainer& eventsContainer();
    void setStoredState(ZMTrackingSessionStorageState state);
    void scheduleRetry(const RetryHandler& handler);
    // Removes the file and lets go of the finishing session (released by the caller).
    std::shared_ptr<ZMTrackingSession> endWithFinalFailure();

    RetryHandler sessionInitializationRetryHandler_;
    RetryHandler sendEventsRetryHandler_;
    std::shared_ptr<ZMTrackingSessionStorage> storage_;
    ZMTrackingSessionNetworkState networkState_;
    ZMTrackingSessionObjectLifecycle objectLifecycle_;
    bool wasStartCalled_ = false;
    std::shared_ptr<DispatchQueue> synchronizationQueue_;
    std::optional<ZMTrackingSessionEventsContainer> eventsContainer_;
};

}  // namespace zarvo
