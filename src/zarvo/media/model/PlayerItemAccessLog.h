#pragma once

#include <vector>

#include "zarvo/media/model/PlayerItemAccessLogEvent.h"

namespace zarvo {

// A snapshot of an item's access log: its events, oldest first.
class PlayerItemAccessLog {
public:
    explicit PlayerItemAccessLog(std::vector<PlayerItemAccessLogEvent> events)
        : events_(std::move(events)) {}
    const std::vector<PlayerItemAccessLogEvent>& events() const { return events_; }

private:
    std::vector<PlayerItemAccessLogEvent> events_;
};

}  // namespace zarvo
