#include "zarvo/platform/NotificationCenter.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "zarvo/platform/Immortal.h"

namespace zarvo {

struct NotificationCenter::Registry {
    struct Entry {
        std::string name;
        const void* object;
        std::shared_ptr<DispatchQueue> queue;
        std::shared_ptr<Block> block;
    };
    std::mutex mutex;
    std::uint64_t lastId = 0;
    std::map<std::uint64_t, Entry> entries;

    bool isRegistered(std::uint64_t id) {
        std::lock_guard lock(mutex);
        return entries.count(id) != 0;
    }
};

NotificationCenter::NotificationCenter() : registry_(std::make_shared<Registry>()) {}
NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
    static Immortal<NotificationCenter> center;
    return center.get();
}

Observation NotificationCenter::addObserver(std::string name, const void* object,
                                            std::shared_ptr<DispatchQueue> queue, Block block) {
    std::uint64_t id = 0;
    {
        std::lock_guard lock(registry_->mutex);
        id = ++registry_->lastId;
        registry_->entries.emplace(id, Registry::Entry{std::move(name), object, std::move(queue),
                                                       std::make_shared<Block>(std::move(block))});
    }
    return Observation([weakRegistry = std::weak_ptr<Registry>(registry_), id] {
        if (auto registry = weakRegistry.lock()) {
            std::lock_guard lock(registry->mutex);
            registry->entries.erase(id);
        }
    });
}

void NotificationCenter::post(const Notification& notification) {
    std::vector<std::pair<std::uint64_t, Registry::Entry>> matching;
    {
        std::lock_guard lock(registry_->mutex);
        for (const auto& [id, entry] : registry_->entries) {
            if (entry.name == notification.name &&
                (entry.object == nullptr || entry.object == notification.objectIdentity)) {
                matching.emplace_back(id, entry);
            }
        }
    }
    for (auto& [id, entry] : matching) {
        if (!entry.queue) {
            if (registry_->isRegistered(id)) {
                (*entry.block)(notification);
            }
            continue;
        }
        // A registration ended before the queue runs the block is not called.
        entry.queue->async([weakRegistry = std::weak_ptr<Registry>(registry_), id = id,
                            block = entry.block, notification] {
            auto registry = weakRegistry.lock();
            if (registry && registry->isRegistered(id)) {
                (*block)(notification);
            }
        });
    }
}

}  // namespace zarvo
