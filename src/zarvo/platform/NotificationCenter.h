#pragma once

#include <functional>
#include <memory>
#include <string>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Notification.h"
#include "zarvo/platform/Observation.h"

namespace zarvo {

// Delivers notifications by name to the observers registered for them. Thread-safe: posts
// may come from any thread.
class NotificationCenter {
public:
    using Block = std::function<void(const Notification&)>;

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    static NotificationCenter& defaultCenter();

    // Calls `block` for every notification named `name` whose object is `object` (any object
    // when nullptr). The block runs on `queue`, or on the posting thread without one. Each
    // registration is separate: registering twice delivers twice.
    Observation addObserver(std::string name, const void* object,
                            std::shared_ptr<DispatchQueue> queue, Block block);

    void post(const Notification& notification);

private:
    struct Registry;
    std::shared_ptr<Registry> registry_;
};

}  // namespace zarvo
