#pragma once

#include <string_view>

namespace zarvo {

/// A tracking session's state as the application sees it.
enum class ZMTrackingSessionState {
    /// Made; start() not called yet.
    objectInitialized,
    /// Started, and the initialisation beacon failed: a retry is due.
    sessionStarted,
    /// The initialisation beacon is on its way (or, with a minimum duration, held back).
    ongoingSessionInitialization,
    /// Initialised on the service: events are sent in batches.
    readyToSendEvents,
    /// A batch of events is on its way.
    sendingEvents,
    /// Finishing or finished (finishAndSendAllEvents() or finishAndCancel()).
    sessionMarkedAsFinished,
};

/// The case name, for example "readyToSendEvents".
constexpr std::string_view stateName(ZMTrackingSessionState state) {
    switch (state) {
        case ZMTrackingSessionState::objectInitialized:
            return "objectInitialized";
        case ZMTrackingSessionState::sessionStarted:
            return "sessionStarted";
        case ZMTrackingSessionState::ongoingSessionInitialization:
            return "ongoingSessionInitialization";
        case ZMTrackingSessionState::readyToSendEvents:
            return "readyToSendEvents";
        case ZMTrackingSessionState::sendingEvents:
            return "sendingEvents";
        case ZMTrackingSessionState::sessionMarkedAsFinished:
            return "sessionMarkedAsFinished";
    }
    return "objectInitialized";
}

}  // namespace zarvo
