#include "zarvo/tracking/ZMTrackingSessionEventsContainer.h"

#include <string>

#include "zarvo/platform/FatalError.h"

namespace zarvo {

void ZMTrackingSessionEventsContainer::add(ZMInternalTrackingEvent event) {
    storage_->storageData.events.push_back(std::move(event));
    storage_->save();
}

void ZMTrackingSessionEventsContainer::remove(std::size_t count) {
    auto& events = storage_->storageData.events;
    if (count > events.size()) {
        fatalError("Cannot remove " + std::to_string(count) + " tracking events, only " +
                   std::to_string(events.size()) + " are pending");
    }
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(count));
    storage_->save();
}

}  // namespace zarvo
