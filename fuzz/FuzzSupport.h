#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zarvo/platform/FatalError.h"

namespace zarvo::fuzz {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Runs `body`; a fatal error that the parsers are required to raise is an expected outcome.
template <class Body>
void allowingRequiredFatalErrors(Body body) {
    static ScopedFatalErrorHandler* handler = new ScopedFatalErrorHandler();  // throws
    (void)handler;
    try {
        body();
    } catch (const FatalErrorException&) {
    }
}

// Stops the run (a finding) when a property does not hold.
inline void check(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

}  // namespace zarvo::fuzz
