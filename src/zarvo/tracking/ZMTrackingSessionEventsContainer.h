#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMInternalTrackingEvent.h"
#include "zarvo/tracking/ZMTrackingSessionStorage.h"

namespace zarvo {

// The pending events of a session, kept in its storage so that every change is written.
class ZARVO_EXPORT ZMTrackingSessionEventsContainer {
public:
    explicit ZMTrackingSessionEventsContainer(std::shared_ptr<ZMTrackingSessionStorage> storage)
        : storage_(std::move(storage)) {}

    const std::vector<ZMInternalTrackingEvent>& events() const {
        return storage_->storageData.events;
    }
    std::size_t count() const { return events().size(); }

    // Appends the event and writes the file.
    void add(ZMInternalTrackingEvent event);
    // Removes the oldest `count` events (a sent batch) and writes the file. Removing more
    // events than are pending is a fatal error.
    void remove(std::size_t count);

private:
    std::shared_ptr<ZMTrackingSessionStorage> storage_;
};

}  // namespace zarvo
