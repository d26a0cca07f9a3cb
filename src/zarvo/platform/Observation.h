#pragma once

#include <functional>
#include <utility>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A registration that lasts as long as its token: destroying the token or calling
// invalidate() ends it, after which the observed object no longer calls the handler.
// Tokens move but do not copy.
class ZARVO_EXPORT Observation {
public:
    Observation() = default;
    // `end` runs once, when the token is invalidated or destroyed.
    explicit Observation(std::function<void()> end) : end_(std::move(end)) {}
    ~Observation() { invalidate(); }
    Observation(Observation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Observation& operator=(Observation&& other) noexcept {
        if (this != &other) {
            invalidate();
            end_ = std::exchange(other.end_, nullptr);
        }
        return *this;
    }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

    void invalidate() {
        if (auto end = std::exchange(end_, nullptr)) {
            end();
        }
    }
    bool isValid() const { return static_cast<bool>(end_); }

private:
    std::function<void()> end_;
};

}  // namespace zarvo
