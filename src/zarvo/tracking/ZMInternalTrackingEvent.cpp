#include "zarvo/tracking/ZMInternalTrackingEvent.h"

#include "zarvo/platform/AsciiText.h"

namespace zarvo {

ZMInternalTrackingEvent ZMInternalTrackingEvent::make(const ZMTrackingEvent& event,
                                                      std::int64_t sessionOffset,
                                                      std::int64_t movieOffset) {
    return {event.code(), sessionOffset, movieOffset, event.valueText()};
}

std::string ZMInternalTrackingEvent::text() const {
    std::string out;
    ascii::appendDecimal(out, eventType);
    out += ',';
    ascii::appendDecimal(out, sessionOffset);
    out += ',';
    ascii::appendDecimal(out, movieOffset);
    out += ',';
    out += value;
    return out;
}

std::string ZMInternalTrackingEvent::eventsText(
    const std::vector<ZMInternalTrackingEvent>& events) {
    std::string out;
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (index > 0) {
            out += ';';
        }
        out += events[index].text();
    }
    return out;
}

}  // namespace zarvo
