#pragma once

#include <exception>

namespace zarvo {

// An exception thrown by main-queue work (such as a test's fatal-error handler) cannot unwind
// through GLib's dispatch. It is kept here and rethrown by the RunLoop call that drives the
// main context; with no RunLoop call driving it, the process stops through fatalError.
class MainThreadExceptions {
public:
    // Keeps the first exception until rethrowKept(); stops the process through fatalError
    // when nothing drives the loop.
    static void keep(std::exception_ptr error);
    // Rethrows and forgets the kept exception, if any.
    static void rethrowKept();

    // Marks the calling thread as driving the main context through RunLoop for its lifetime.
    class DriveScope {
    public:
        DriveScope();
        ~DriveScope();
        DriveScope(const DriveScope&) = delete;
        DriveScope& operator=(const DriveScope&) = delete;
    };
};

}  // namespace zarvo
