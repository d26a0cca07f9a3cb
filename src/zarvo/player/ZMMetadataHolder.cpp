#include "zarvo/player/ZMMetadataHolder.h"

#include <algorithm>
#include <string>
#include <utility>

#include "zarvo/platform/Base64.h"
#include "zarvo/player/PlayerMetadataJson.h"

namespace zarvo {

void ZMMetadataHolder::clear() {
    events_.clear();
}

std::optional<ZMPlayerMetadataEvent> ZMMetadataHolder::decode(std::string_view urlSafeBase64) {
    auto bytes = Base64::decodeUrlSafe(urlSafeBase64);
    if (!bytes) {
        return std::nullopt;
    }
    // The parser rejects bytes that are not UTF-8.
    auto json = json::parse(*bytes);
    if (!json) {
        return std::nullopt;
    }
    try {
        return json->get<ZMPlayerMetadataValue>().vast.event;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

void ZMMetadataHolder::collect(const std::vector<DateRangeMetadataGroup>& groups) {
    for (const auto& group : groups) {
        for (const auto& item : group.items) {
            if (!item.stringValue) {
                continue;
            }
            if (auto event = decode(*item.stringValue)) {
                // A known event keeps its reported flag.
                events_.try_emplace(std::move(*event), Entry{false, nextSequence_++});
            }
        }
    }
}

std::vector<ZMPlayerMetadataEvent> ZMMetadataHolder::dueEvents(std::optional<Date> currentDate) {
    if (!currentDate) {
        return {};
    }
    std::vector<std::pair<std::uint64_t, const ZMPlayerMetadataEvent*>> due;
    for (auto& [event, entry] : events_) {
        if (!entry.reported && event.contains(*currentDate)) {
            entry.reported = true;
            due.emplace_back(entry.sequence, &event);
        }
    }
    std::sort(due.begin(), due.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<ZMPlayerMetadataEvent> events;
    events.reserve(due.size());
    for (const auto& [sequence, event] : due) {
        events.push_back(*event);
    }
    return events;
}

}  // namespace zarvo
