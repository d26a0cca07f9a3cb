#pragma once

#include <new>
#include <utility>

namespace zarvo {

// Holds a T that is built when the Immortal is and never destroyed. Used for process-wide
// singletons (queues, worker threads, the standard scheduler) so that detached worker threads
// and late static destructors can still reach them while the process exits.
template <typename T>
class Immortal {
public:
    template <typename... Args>
    explicit Immortal(Args&&... args) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& get() { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return &get(); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace zarvo
