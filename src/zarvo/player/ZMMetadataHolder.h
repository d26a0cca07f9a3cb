#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zarvo/media/model/DateRangeMetadataGroup.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMPlayerMetadataEvent.h"

namespace zarvo {

/// The advertising events of the current item, each with whether it has been reported.
/// Used on the main thread.
class ZARVO_EXPORT ZMMetadataHolder {
public:
    /// Forgets every event (before a new item).
    void clear();

    /// Decodes every item of the groups (URL-safe Base64 of `{"vast": {"event": {...}}}`) and
    /// adds the events not known yet as unreported. Items that do not decode are skipped.
    void collect(const std::vector<DateRangeMetadataGroup>& groups);

    /// The unreported events whose span contains `currentDate`, now marked reported, in the
    /// order they were first collected. Nothing without a date.
    std::vector<ZMPlayerMetadataEvent> dueEvents(std::optional<Date> currentDate);

    /// The number of events known, reported or not.
    std::size_t size() const { return events_.size(); }

    /// The event of one item's value; nothing when any step of the decoding fails (Base64,
    /// UTF-8 JSON text, or the shape of ZMPlayerMetadataValue).
    static std::optional<ZMPlayerMetadataEvent> decode(std::string_view urlSafeBase64);

private:
    struct Entry {
        bool reported = false;
        std::uint64_t sequence = 0;  // collecting order, for a stable report order
    };

    std::unordered_map<ZMPlayerMetadataEvent, Entry> events_;
    std::uint64_t nextSequence_ = 0;
};

}  // namespace zarvo
