#include "zarvo/tracking/ZMTrackingSessionStateLogic.h"

#include <utility>

namespace zarvo {

using NetworkValue = ZMTrackingSessionNetworkStateValue;
using Lifecycle = ZMTrackingSessionObjectLifecycleState;

namespace {
constexpr std::size_t batchSize = 50;
}

ZMTrackingSessionStateLogic::ZMTrackingSessionStateLogic(
    std::shared_ptr<ZMTrackingSessionStorage> storage)
    : storage_(std::move(storage)),
      synchronizationQueue_(DispatchQueue::serial("SynchronizationQueue")) {}

void ZMTrackingSessionStateLogic::setSessionInitializationRetryHandler(RetryHandler handler) {
    synchronizationQueue_->sync([&] { sessionInitializationRetryHandler_ = std::move(handler); });
}

void ZMTrackingSessionStateLogic::setSendEventsRetryHandler(RetryHandler handler) {
    synchronizationQueue_->sync([&] { sendEventsRetryHandler_ = std::move(handler); });
}

ZMTrackingSessionEventsContainer& ZMTrackingSessionStateLogic::eventsContainer() {
    if (!eventsContainer_) {
        eventsContainer_.emplace(storage_);
    }
    return *eventsContainer_;
}

void ZMTrackingSessionStateLogic::setStoredState(ZMTrackingSessionStorageState state) {
    storage_->storageData.sessionState = state;
    storage_->save();
}

void ZMTrackingSessionStateLogic::scheduleRetry(const RetryHandler& handler) {
    DispatchQueue::main()->async(handler);
}

std::shared_ptr<ZMTrackingSession> ZMTrackingSessionStateLogic::endWithFinalFailure() {
    storage_->remove();
    return std::move(objectLifecycle_.referenceToContainer);
}

bool ZMTrackingSessionStateLogic::start() {
    return synchronizationQueue_->syncValue([&] {
        if (wasStartCalled_ || isCancelled() ||
            networkState_.value != NetworkValue::uninitialized) {
            return false;
        }
        wasStartCalled_ = true;
        networkState_ = {NetworkValue::ongoingSessionInitialization, std::nullopt};
        setStoredState(ZMTrackingSessionStorageState::none);
        return true;
    });
}

bool ZMTrackingSessionStateLogic::retryStart() {
    return synchronizationQueue_->syncValue([&] {
        if (!wasStartCalled_ || isCancelled() ||
            networkState_.value != NetworkValue::uninitialized) {
            return false;
        }
        networkState_ = {NetworkValue::ongoingSessionInitialization, std::nullopt};
        setStoredState(ZMTrackingSessionStorageState::none);
        return true;
    });
}

void ZMTrackingSessionStateLogic::addEvent(ZMInternalTrackingEvent event) {
    synchronizationQueue_->sync([&] {
        if (objectLifecycle_.state == Lifecycle::performingTasks) {
            eventsContainer().add(std::move(event));
        }
    });
}

std::vector<ZMInternalTrackingEvent> ZMTrackingSessionStateLogic::takeEventsToSend() {
    return synchronizationQueue_->syncValue([&] {
        std::vector<ZMInternalTrackingEvent> batch;
        if (networkState_.value != NetworkValue::sessionInitialized) {
            return batch;
        }
        const auto& pending = eventsContainer().events();
        switch (objectLifecycle_.state) {
            case Lifecycle::performingTasks:
                if (pending.size() >= batchSize) {
                    batch.assign(pending.begin(), pending.begin() + batchSize);
                }
                break;
            case Lifecycle::markedAsSendAllAndFinish:
                batch = pending;
                break;
            case Lifecycle::markedAsFinishing:
                break;
        }
        if (!batch.empty()) {
            networkState_ = {NetworkValue::sendingEvents, std::nullopt};
        }
        return batch;
    });
}

void ZMTrackingSessionStateLogic::handleInitializationResult(
    const std::optional<ZMTrackingSessionError>& failure) {
    std::shared_ptr<ZMTrackingSession> released;
    synchronizationQueue_->sync([&] {
        if (isCancelled()) {
            return;
        }
        if (!failure) {
            networkState_ = {NetworkValue::sessionInitialized, std::nullopt};
            setStoredState(ZMTrackingSessionStorageState::initialized);
            return;
        }
        networkState_ = {NetworkValue::uninitialized, failure};
        if (failure->isRetryable() && sessionInitializationRetryHandler_) {
            scheduleRetry(sessionInitializationRetryHandler_);
        } else {
            released = endWithFinalFailure();
        }
    });
}

void ZMTrackingSessionStateLogic::handleEventsResult(
    const std::optional<ZMTrackingSessionError>& failure, std::size_t batchCount) {
    std::shared_ptr<ZMTrackingSession> released;
    synchronizationQueue_->sync([&] {
        if (isCancelled()) {
            return;
        }
        if (!failure) {
            eventsContainer().remove(batchCount);
            networkState_ = {NetworkValue::sessionInitialized, std::nullopt};
            if (eventsContainer().count() == 0 &&
                objectLifecycle_.state == Lifecycle::markedAsSendAllAndFinish) {
                setStoredState(ZMTrackingSessionStorageState::markedAsFinished);
                storage_->remove();
                released = std::move(objectLifecycle_.referenceToContainer);
            }
            return;
        }
        networkState_ = {NetworkValue::sessionInitialized, failure};
        setStoredState(ZMTrackingSessionStorageState::initialized);
        if (failure->isRetryable() && sendEventsRetryHandler_) {
            scheduleRetry(sendEventsRetryHandler_);
        } else {
            released = endWithFinalFailure();
        }
    });
}

void ZMTrackingSessionStateLogic::markSendAllAndFinish(
    std::shared_ptr<ZMTrackingSession> container) {
    synchronizationQueue_->sync([&] {
        if (objectLifecycle_.state == Lifecycle::performingTasks) {
            objectLifecycle_.state = Lifecycle::markedAsSendAllAndFinish;
            objectLifecycle_.referenceToContainer = std::move(container);
        }
    });
}

void ZMTrackingSessionStateLogic::cancel() {
    std::shared_ptr<ZMTrackingSession> released;
    synchronizationQueue_->sync([&] {
        objectLifecycle_.state = Lifecycle::markedAsFinishing;
        storage_->remove();
        // Nothing is left to do in the background, so the session need not be kept alive.
        released = std::move(objectLifecycle_.referenceToContainer);
    });
}

ZMTrackingSessionState ZMTrackingSessionStateLogic::state() const {
    return synchronizationQueue_->syncValue([&] {
        if (objectLifecycle_.state != Lifecycle::performingTasks) {
            return ZMTrackingSessionState::sessionMarkedAsFinished;
        }
        switch (networkState_.value) {
            case NetworkValue::uninitialized:
                return wasStartCalled_ ? ZMTrackingSessionState::sessionStarted
                                       : ZMTrackingSessionState::objectInitialized;
            case NetworkValue::ongoingSessionInitialization:
                return ZMTrackingSessionState::ongoingSessionInitialization;
            case NetworkValue::sessionInitialized:
                return ZMTrackingSessionState::readyToSendEvents;
            case NetworkValue::sendingEvents:
                return ZMTrackingSessionState::sendingEvents;
        }
        return ZMTrackingSessionState::objectInitialized;
    });
}

std::optional<ZMTrackingSessionError> ZMTrackingSessionStateLogic::lastError() const {
    return synchronizationQueue_->syncValue([&] { return networkState_.lastError; });
}

ZMTrackingSessionNetworkStateValue ZMTrackingSessionStateLogic::networkStateValue() const {
    return synchronizationQueue_->syncValue([&] { return networkState_.value; });
}

std::size_t ZMTrackingSessionStateLogic::pendingEventsCount() const {
    return synchronizationQueue_->syncValue([&] { return storage_->storageData.events.size(); });
}

}  // namespace zarvo
