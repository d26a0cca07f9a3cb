#include "origin/FaultInjector.h"

#include <algorithm>

namespace zarvo::origin {

void FaultInjector::add(Fault fault) {
    std::lock_guard lock(mutex_);
    faults_.push_back(std::move(fault));
}

void FaultInjector::remove(const std::string& pathPrefix) {
    std::lock_guard lock(mutex_);
    std::erase_if(faults_, [&](const Fault& fault) { return fault.pathPrefix == pathPrefix; });
}

void FaultInjector::clear() {
    std::lock_guard lock(mutex_);
    faults_.clear();
}

std::vector<Fault> FaultInjector::faults() const {
    std::lock_guard lock(mutex_);
    return faults_;
}

std::optional<Fault> FaultInjector::take(const std::string& path) {
    std::lock_guard lock(mutex_);
    std::erase_if(faults_, [](const Fault& fault) { return fault.count && *fault.count <= 0; });
    for (auto it = faults_.begin(); it != faults_.end(); ++it) {
        if (path.compare(0, it->pathPrefix.size(), it->pathPrefix) != 0) {
            continue;
        }
        if (it->fraction < 1.0 &&
            std::uniform_real_distribution<double>(0.0, 1.0)(random_) >= it->fraction) {
            continue;
        }
        Fault chosen = *it;
        if (it->count && --*it->count <= 0) {
            faults_.erase(it);
        }
        return chosen;
    }
    return std::nullopt;
}

}  // namespace zarvo::origin
