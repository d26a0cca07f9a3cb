#pragma once

#include <vector>

#include "zarvo/media/model/PlayerItemAccessLogEvent.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// A snapshot of an item's access log: its events, oldest first.
class ZARVO_EXPORT PlayerItemAccessLog {
public:
    explicit PlayerItemAccessLog(std::vector<PlayerItemAccessLogEvent> events)
        : events_(std::move(events)) {}
    const std::vector<PlayerItemAccessLogEvent>& events() const { return events_; }

private:
    std::vector<PlayerItemAccessLogEvent> events_;
};

}  // namespace zarvo
