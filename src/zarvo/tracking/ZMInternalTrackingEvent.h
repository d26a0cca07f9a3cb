#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMTrackingEvent.h"

namespace zarvo {

// One recorded event as a session keeps, stores and sends it.
struct ZARVO_EXPORT ZMInternalTrackingEvent {
    std::int64_t eventType = 0;      // the event kind's code
    std::int64_t sessionOffset = 0;  // whole seconds from the session's start to the event
    std::int64_t movieOffset = 0;    // position in the content, as the application gave it
    std::string value;               // the payload as text

    // The recorded form of `event`, added `sessionOffset` seconds after the session started.
    static ZMInternalTrackingEvent make(const ZMTrackingEvent& event, std::int64_t sessionOffset,
                                        std::int64_t movieOffset);

    // "eventType,sessionOffset,movieOffset,value" (the value as it is, unescaped).
    std::string text() const;
    // The events' texts joined by ";" in the given order; empty for no events.
    static std::string eventsText(const std::vector<ZMInternalTrackingEvent>& events);

    bool operator==(const ZMInternalTrackingEvent&) const = default;
};

}  // namespace zarvo
