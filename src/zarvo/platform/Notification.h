#pragma once

#include <any>
#include <map>
#include <memory>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A notification posted through a NotificationCenter: a name, the object it concerns and
// optional user info.
struct ZARVO_EXPORT Notification {
    std::string name;
    // The object, as the poster gave it (typically a std::shared_ptr of its own type).
    std::any object;
    // The identity of the object, which observers may filter on; nullptr for none.
    const void* objectIdentity = nullptr;
    std::map<std::string, std::any> userInfo;

    // The object as a shared_ptr<T>, or nullptr when it is not one.
    template <typename T>
    std::shared_ptr<T> objectAs() const {
        if (const auto* object = std::any_cast<std::shared_ptr<T>>(&this->object)) {
            return *object;
        }
        return nullptr;
    }

    template <typename T>
    static Notification make(std::string name, const std::shared_ptr<T>& object) {
        return Notification{std::move(name), object, object.get(), {}};
    }
};

}  // namespace zarvo
