#pragma once

#include <chrono>
#include <functional>

#include "zarvo/platform/RunLoop.h"

namespace zarvo::test {

// Runs the main loop until `done` holds or the deadline passes; whether it held. The deadline
// only bounds a failing test: a passing one returns as soon as `done` holds.
inline bool waitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds deadline = std::chrono::seconds(30)) {
    return RunLoop::main().runUntil(done, deadline);
}

}  // namespace zarvo::test
