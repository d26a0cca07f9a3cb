#pragma once

#include <string_view>

namespace zarvo {

// A tracking session's state as the application sees it.
enum class ZMTrackingSessionState {
    objectInitialized,
    sessionStarted,
    ongoingSessionInitialization,
    readyToSendEvents,
    sendingEvents,
    sessionMarkedAsFinished,
};

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
