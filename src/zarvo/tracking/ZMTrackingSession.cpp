#include "zarvo/tracking/ZMTrackingSession.h"

#include <cmath>
#include <random>
#include <utility>

#include "zarvo/platform/DispatchQueue.h"

namespace zarvo {
namespace {

std::uint32_t random32() {
    thread_local std::mt19937 generator{std::random_device{}()};
    return static_cast<std::uint32_t>(generator());
}

// A session's last reference may be dropped inside a URL session completion; releasing it
// elsewhere keeps the session (and its URL session) from being torn down on that queue.
void releaseElsewhere(std::shared_ptr<ZMTrackingSession> session) {
    DispatchQueue::global()->async([session = std::move(session)] {});
}

}  // namespace

std::shared_ptr<ZMTrackingSession> ZMTrackingSession::make(
    ZMTrackingSessionContentInfo contentInfo, ZMTrackingSessionDeviceInfo deviceInfo,
    UrlSessionConfiguration urlSessionConfiguration, ZMTrackingSessionConfiguration configuration) {
    auto session = std::make_shared<ZMTrackingSession>(
        Passkey{}, std::move(contentInfo), std::move(deviceInfo),
        std::move(urlSessionConfiguration), configuration);
    session->setUpStateLogic();
    return session;
}

ZMTrackingSession::ZMTrackingSession(Passkey, ZMTrackingSessionContentInfo contentInfo,
                                     ZMTrackingSessionDeviceInfo deviceInfo,
                                     UrlSessionConfiguration urlSessionConfiguration,
                                     ZMTrackingSessionConfiguration configuration)
    : localId_(),
      deviceInfo_(std::move(deviceInfo)),
      contentInfo_(std::move(contentInfo)),
      storage_(std::make_shared<ZMTrackingSessionStorage>(
          localId_, ZMTrackingSessionStorageData(deviceInfo_, contentInfo_))),
      urlSessionConfiguration_(std::move(urlSessionConfiguration)),
      configuration_(configuration),
      scheduler_(Scheduler::standard()) {}

ZMTrackingSession::~ZMTrackingSession() {
    std::shared_ptr<Timer> retryTimer;
    std::shared_ptr<Timer> startTimer;
    std::shared_ptr<ZMTrackingNetworkOperation> operation;
    {
        std::lock_guard lock(mutex_);
        retryTimer = std::move(retryTimer_);
        startTimer = std::move(startSessionTimer_);
        operation = std::move(networkOperation_);
    }
    if (retryTimer) {
        retryTimer->invalidate();
    }
    if (startTimer) {
        startTimer->invalidate();
    }
    if (operation) {
        operation->cancel();
    }
}

void ZMTrackingSession::setUpStateLogic() {
    stateLogic_ = std::make_unique<ZMTrackingSessionStateLogic>(storage_);
    std::weak_ptr<ZMTrackingSession> weak = weak_from_this();
    stateLogic_->setSessionInitializationRetryHandler([weak] {
        if (auto session = weak.lock()) {
            session->scheduleRetry(RetryTarget::sessionInitialization);
        }
    });
    stateLogic_->setSendEventsRetryHandler([weak] {
        if (auto session = weak.lock()) {
            session->scheduleRetry(RetryTarget::eventsSending);
        }
    });
}

std::shared_ptr<UrlSession> ZMTrackingSession::urlSession() {
    std::lock_guard lock(mutex_);
    if (!urlSession_) {
        urlSession_ = UrlSession::make(urlSessionConfiguration_);
    }
    return urlSession_;
}

std::int64_t ZMTrackingSession::uptimeSeconds() const {
    return static_cast<std::int64_t>(std::trunc(scheduler_->uptime()));
}

void ZMTrackingSession::scheduleRetry(RetryTarget target) {
    double interval = 120.0 - static_cast<double>(random32() % 5);
    std::weak_ptr<ZMTrackingSession> weak = weak_from_this();
    auto timer = Timer::scheduledTimer(
        interval, false,
        [weak, target](Timer&) {
            auto session = weak.lock();
            if (!session) {
                return;
            }
            if (target == RetryTarget::sessionInitialization) {
                session->retrySessionInitializationTimerFired();
            } else {
                session->retryEventsSendingTimerFired();
            }
        },
        scheduler_);
    std::shared_ptr<Timer> previous;
    {
        std::lock_guard lock(mutex_);
        previous = std::exchange(retryTimer_, timer);
    }
    if (previous) {
        previous->invalidate();
    }
}

void ZMTrackingSession::start() {
    if (!stateLogic_->start()) {
        return;
    }
    std::int64_t startTime = uptimeSeconds();
    {
        std::lock_guard lock(mutex_);
        sessionStartTime_ = startTime;
    }
    if (configuration_.hasMinimumDuration()) {
        // The session is reported only once it lasted the minimum: this timer is made and
        // kept but not added to the run loop, so it stays dormant until the host adds it.
        std::weak_ptr<ZMTrackingSession> weak = weak_from_this();
        auto timer = Timer::make(
            scheduler_->now().addingTimeInterval(*configuration_.minSessionDuration), 0, false,
            [weak](Timer&) {
                if (auto session = weak.lock()) {
                    {
                        std::lock_guard lock(session->mutex_);
                        session->sessionStarted_ = true;
                    }
                    session->sendInitializationBeacon();
                }
            },
            scheduler_);
        std::lock_guard lock(mutex_);
        startSessionTimer_ = std::move(timer);
        return;
    }
    {
        std::lock_guard lock(mutex_);
        sessionStarted_ = true;
    }
    sendInitializationBeacon();
}

void ZMTrackingSession::startOperation(
    ZMTrackingSessionUrlPath path, std::vector<UrlQueryItem> items,
    std::function<void(ZMTrackingSession&, const std::optional<ZMTrackingSessionError>&)>
        handleResult) {
    auto operation = std::make_shared<ZMTrackingNetworkOperation>(
        ZMTrackingUrlCreator{contentInfo_.endpointUrl, path, std::move(items)}, urlSession());
    {
        std::lock_guard lock(mutex_);
        networkOperation_ = operation;
    }
    std::weak_ptr<ZMTrackingSession> weak = weak_from_this();
    operation->start([weak, handleResult = std::move(handleResult)](
                         std::optional<ZMTrackingSessionError> failure) {
        auto session = weak.lock();
        if (!session) {
            return;
        }
        handleResult(*session, failure);
        releaseElsewhere(std::move(session));
    });
}

void ZMTrackingSession::sendInitializationBeacon() {
    std::vector<UrlQueryItem> items = deviceInfo_.queryItems();
    for (auto& item : contentInfo_.queryItems()) {
        items.push_back(std::move(item));
    }
    startOperation(
        ZMTrackingSessionUrlPath::initialize, std::move(items),
        [](ZMTrackingSession& session, const std::optional<ZMTrackingSessionError>& failure) {
            session.stateLogic_->handleInitializationResult(failure);
        });
}

void ZMTrackingSession::trySendEvents() {
    std::vector<ZMInternalTrackingEvent> batch = stateLogic_->takeEventsToSend();
    if (batch.empty()) {
        return;
    }
    std::int64_t startTime;
    {
        std::lock_guard lock(mutex_);
        startTime = sessionStartTime_;
    }
    std::vector<UrlQueryItem> items = {
        {"version", deviceInfo_.version},
        {"customerId", std::to_string(contentInfo_.customerId)},
        {"sessionId", contentInfo_.sessionId},
        {"sessionDuration", std::to_string(uptimeSeconds() - startTime)},
        {"events", ZMInternalTrackingEvent::eventsText(batch)},
    };
    std::size_t batchCount = batch.size();
    startOperation(ZMTrackingSessionUrlPath::report, std::move(items),
                   [batchCount](ZMTrackingSession& session,
                                const std::optional<ZMTrackingSessionError>& failure) {
                       session.stateLogic_->handleEventsResult(failure, batchCount);
                   });
}

void ZMTrackingSession::addTrackingEvent(const ZMTrackingEvent& eventType,
                                         std::int64_t movieOffset) {
    std::int64_t startTime;
    {
        std::lock_guard lock(mutex_);
        startTime = sessionStartTime_;
    }
    stateLogic_->addEvent(
        ZMInternalTrackingEvent::make(eventType, uptimeSeconds() - startTime, movieOffset));
    trySendEvents();
}

void ZMTrackingSession::finishAndSendAllEvents() {
    std::int64_t startTime;
    {
        std::lock_guard lock(mutex_);
        if (!sessionStarted_) {
            return;
        }
        sessionStarted_ = false;
        startTime = sessionStartTime_;
    }
    stateLogic_->markSendAllAndFinish(shared_from_this());
    if (configuration_.hasMinimumDuration() &&
        *configuration_.minSessionDuration > static_cast<double>(uptimeSeconds() - startTime)) {
        finishAndCancel();
        return;
    }
    trySendEvents();
}

void ZMTrackingSession::finishAndCancel() {
    std::shared_ptr<Timer> startTimer;
    std::shared_ptr<ZMTrackingNetworkOperation> operation;
    {
        std::lock_guard lock(mutex_);
        sessionStarted_ = false;
        startTimer = startSessionTimer_;
        operation = std::move(networkOperation_);
    }
    if (startTimer) {
        startTimer->invalidate();
    }
    stateLogic_->cancel();
    if (operation) {
        operation->cancel();
    }
}

void ZMTrackingSession::retrySessionInitializationTimerFired() {
    if (stateLogic_->retryStart()) {
        sendInitializationBeacon();
    }
}

void ZMTrackingSession::retryEventsSendingTimerFired() {
    trySendEvents();
}

ZMTrackingSessionState ZMTrackingSession::state() const {
    return stateLogic_->state();
}

std::optional<ZMTrackingSessionError> ZMTrackingSession::lastError() const {
    return stateLogic_->lastError();
}

std::size_t ZMTrackingSession::pendingEventsCount() const {
    return stateLogic_->pendingEventsCount();
}

bool ZMTrackingSession::isAwaitingNetwork() const {
    auto value = stateLogic_->networkStateValue();
    return value == ZMTrackingSessionNetworkStateValue::ongoingSessionInitialization ||
           value == ZMTrackingSessionNetworkStateValue::sendingEvents;
}

}  // namespace zarvo
