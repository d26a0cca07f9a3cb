#include "zarvo/platform/MainThreadExceptions.h"

#include <utility>

#include "zarvo/platform/EscapedException.h"

namespace zarvo {
namespace {

thread_local int driveDepth = 0;
thread_local std::exception_ptr kept;

}  // namespace

void MainThreadExceptions::keep(std::exception_ptr error) {
    if (driveDepth == 0) {
        failOnEscapedException("main", std::move(error));
        return;
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
