#include "zarvo/platform/MainThreadExceptions.h"

#include <utility>

namespace zarvo {
namespace {

thread_local int driveDepth = 0;
thread_local std::exception_ptr kept;

[[noreturn]] void terminateWith(std::exception_ptr error) noexcept {
    // Rethrowing inside a noexcept function ends in std::terminate, which reports the error.
    std::rethrow_exception(std::move(error));
}

}  // namespace

void MainThreadExceptions::keep(std::exception_ptr error) {
    if (driveDepth == 0) {
        terminateWith(std::move(error));
    }
    if (!kept) {
        kept = std::move(error);
    }
}

void MainThreadExceptions::rethrowKept() {
    if (kept) {
        std::rethrow_exception(std::exchange(kept, nullptr));
    }
}

MainThreadExceptions::DriveScope::DriveScope() {
    ++driveDepth;
}

MainThreadExceptions::DriveScope::~DriveScope() {
    --driveDepth;
}

}  // namespace zarvo
