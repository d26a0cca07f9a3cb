#pragma once

#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "origin/Fault.h"

namespace zarvo::origin {

// The faults in force. Thread-safe: tests change them while the server answers requests.
class FaultInjector {
public:
    void add(Fault fault);
    // Removes the faults of exactly this prefix.
    void remove(const std::string& pathPrefix);
    void clear();
    std::vector<Fault> faults() const;

    // The fault to apply to a request for `path`, if any: the first fault added whose prefix
    // matches and that selects this request. Counts down limited faults.
    std::optional<Fault> take(const std::string& path);

private:
    mutable std::mutex mutex_;
    std::vector<Fault> faults_;
    std::mt19937 random_{20261122};  // fixed seed: fractions select the same requests each run
};

}  // namespace zarvo::origin
