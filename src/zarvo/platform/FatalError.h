#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace zarvo {

// Stops the process: prints "Fatal error: <message>" to standard error and aborts.
// The only way the SDK stops a process. While a ScopedFatalErrorHandler is alive the
// handler runs instead (tests install one that throws FatalErrorException).
[[noreturn]] void fatalError(const std::string& message);

// Thrown by the throwing test handler; what() is the fatal message.
class FatalErrorException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Replaces the fatal behaviour for its lifetime (process-wide; nests, restoring the previous
// handler on destruction). The handler must not return: it throws or exits. The default
// handler throws FatalErrorException.
class ScopedFatalErrorHandler {
public:
    using Handler = std::function<void(const std::string&)>;

    ScopedFatalErrorHandler();
    explicit ScopedFatalErrorHandler(Handler handler);
    ~ScopedFatalErrorHandler();
    ScopedFatalErrorHandler(const ScopedFatalErrorHandler&) = delete;
    ScopedFatalErrorHandler& operator=(const ScopedFatalErrorHandler&) = delete;

private:
    Handler previous_;
};

}  // namespace zarvo
