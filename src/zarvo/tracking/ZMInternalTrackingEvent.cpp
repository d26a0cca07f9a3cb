#include "zarvo/tracking/ZMInternalTrackingEvent.h"

#include <charconv>

namespace zarvo {
namespace {

void appendInteger(std::string& out, std::int64_t number) {
    char buffer[24];
    auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, number);
    (void)status;
    out.append(buffer, end);
}

}  // namespace

ZMInternalTrackingEvent ZMInternalTrackingEvent::make(const ZMTrackingEvent& event,
                                                      std::int64_t sessionOffset,
                                                      std::int64_t movieOffset) {
    return {event.code(), sessionOffset, movieOffset, event.valueText()};
}

std::string ZMInternalTrackingEvent::text() const {
    std::string out;
    appendInteger(out, eventType);
    out += ',';
    appendInteger(out, sessionOffset);
    out += ',';
    appendInteger(out, movieOffset);
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
