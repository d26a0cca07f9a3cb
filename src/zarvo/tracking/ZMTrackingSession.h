#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/Timer.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/platform/UrlSessionConfiguration.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingEvent.h"
#include "zarvo/tracking/ZMTrackingNetworkOperation.h"
#include "zarvo/tracking/ZMTrackingSessionConfiguration.h"
#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"
#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionState.h"
#include "zarvo/tracking/ZMTrackingSessionStateLogic.h"
#include "zarvo/tracking/ZMTrackingSessionStorage.h"

namespace zarvo {

/// One viewing reported to the tracking service: an initialisation beacon at start, events
/// in batches of 50, the rest when finished. Its state is written to a file after every
/// change so that a later run can send what this one could not. Failed beacons (no
/// connection, 5xx) are retried after 116-120 seconds on the main run loop, without limit;
/// any other failure ends the session and removes its file. Times come from the scheduler
/// that is standard when the session is made.
///
/// The beacons are GET requests: `<endpoint>/init.gif` with the device's and the content's
/// query items, `<endpoint>/events.gif` with "version", "customerId", "sessionId",
/// "sessionDuration" (whole seconds since start()) and "events" (each event as
/// `code,sessionOffset,movieOffset,value`, joined by ";"). The session calls nothing back: read
/// state(), lastError() and pendingEventsCount(). Its calls may come from any thread.
class ZARVO_EXPORT ZMTrackingSession : public std::enable_shared_from_this<ZMTrackingSession> {
    struct Passkey {};

public:
    /// A session for `contentInfo` from `deviceInfo`, its beacons sent on a URL session of
    /// `urlSessionConfiguration` (made on first use).
    static std::shared_ptr<ZMTrackingSession> make(
        ZMTrackingSessionContentInfo contentInfo, ZMTrackingSessionDeviceInfo deviceInfo,
        UrlSessionConfiguration urlSessionConfiguration = UrlSessionConfiguration(),
        ZMTrackingSessionConfiguration configuration = ZMTrackingSessionConfiguration());

    /// Used by make() (the passkey is private).
    ZMTrackingSession(Passkey, ZMTrackingSessionContentInfo contentInfo,
                      ZMTrackingSessionDeviceInfo deviceInfo,
                      UrlSessionConfiguration urlSessionConfiguration,
                      ZMTrackingSessionConfiguration configuration);
    /// Stops the retry timers and cancels a beacon on its way; the stored file stays.
    ~ZMTrackingSession();
    ZMTrackingSession(const ZMTrackingSession&) = delete;
    ZMTrackingSession& operator=(const ZMTrackingSession&) = delete;

    /// Sends the initialisation beacon (once; never after the session was cancelled). With a
    /// minimum duration (ZMTrackingSessionConfiguration) the beacon is held back by a timer
    /// that is never scheduled: such a session sends nothing, and finishAndSendAllEvents()
    /// does nothing for it.
    void start();
    /// Records an event at `movieOffset` seconds of the content, with the whole seconds since
    /// start() as its session offset; ignored once finishing. Then, when the session is
    /// initialised and no beacon is on its way, sends the 50 oldest pending events if there
    /// are 50 (all of them once finishing). Events are sent only from such calls, from
    /// finishAndSendAllEvents() and from retries, never on the initialisation's answer.
    void addTrackingEvent(const ZMTrackingEvent& eventType, std::int64_t movieOffset);
    /// Sends every pending event, then removes the stored file. Does nothing unless started.
    /// The session keeps itself alive until the events are delivered (or fail for good). While
    /// the initialisation beacon is still on its way nothing is sent yet: the events go with
    /// the next addTrackingEvent() call, or stay in the file for a later run.
    void finishAndSendAllEvents();
    /// Stops the session: nothing more is sent and the stored file is removed.
    void finishAndCancel();

    /// The state, as the application sees it.
    ZMTrackingSessionState state() const;
    /// The failure of the last beacon; nothing after a success or before any beacon.
    std::optional<ZMTrackingSessionError> lastError() const;
    /// The session's own random identifier, which names its stored file.
    const Uuid& localId() const { return localId_; }
    /// The device described in the beacons.
    const ZMTrackingSessionDeviceInfo& deviceInfo() const { return deviceInfo_; }
    /// The content reported on.
    const ZMTrackingSessionContentInfo& contentInfo() const { return contentInfo_; }

    /// Events stored and not yet sent.
    std::size_t pendingEventsCount() const;
    /// True while a beacon is on its way (initialisation or a batch of events).
    bool isAwaitingNetwork() const;

    // Targets of the retry timers.
    /// Sends the initialisation beacon again after a retryable failure.
    void retrySessionInitializationTimerFired();
    /// Sends the due batch of events again after a retryable failure.
    void retryEventsSendingTimerFired();

private:
    enum class RetryTarget { sessionInitialization, eventsSending };

    void setUpStateLogic();
    std::shared_ptr<UrlSession> urlSession();
    std::int64_t uptimeSeconds() const;
    void scheduleRetry(RetryTarget target);
    void sendInitializationBeacon();
    void trySendEvents();
    void startOperation(
        ZMTrackingSessionUrlPath path, std::vector<UrlQueryItem> items,
        std::function<void(ZMTrackingSession&, const std::optional<ZMTrackingSessionError>&)>
            handleResult);

    const Uuid localId_;
    const ZMTrackingSessionDeviceInfo deviceInfo_;
    const ZMTrackingSessionContentInfo contentInfo_;
    const std::shared_ptr<ZMTrackingSessionStorage> storage_;
    const UrlSessionConfiguration urlSessionConfiguration_;
    const ZMTrackingSessionConfiguration configuration_;
    const std::shared_ptr<Scheduler> scheduler_;
    std::unique_ptr<ZMTrackingSessionStateLogic> stateLogic_;

    // Guards the members below, which the application's thread, URL session completions
    // and the main run loop all touch.
    mutable std::mutex mutex_;
    std::shared_ptr<Timer> retryTimer_;
    std::shared_ptr<ZMTrackingNetworkOperation> networkOperation_;
    std::int64_t sessionStartTime_ = 0;
    std::shared_ptr<UrlSession> urlSession_;
    std::shared_ptr<Timer> startSessionTimer_;
    bool sessionStarted_ = false;
};

}  // namespace zarvo
