#include "zarvo/platform/FatalError.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace zarvo {
namespace {

std::mutex& handlerMutex() {
    static std::mutex mutex;
    return mutex;
}

ScopedFatalErrorHandler::Handler& currentHandler() {
    static ScopedFatalErrorHandler::Handler handler;
    return handler;
}

}  // namespace

void fatalError(const std::string& message) {
    ScopedFatalErrorHandler::Handler handler;
    {
        std::lock_guard lock(handlerMutex());
        handler = currentHandler();
    }
    if (handler) {
        handler(message);
    }
    std::fprintf(stderr, "Fatal error: %s\n", message.c_str());
    std::fflush(stderr);
    std::fflush(stdout);
    std::abort();
}

ScopedFatalErrorHandler::ScopedFatalErrorHandler()
    : ScopedFatalErrorHandler(
          [](const std::string& message) { throw FatalErrorException(message); }) {}

ScopedFatalErrorHandler::ScopedFatalErrorHandler(Handler handler) {
    std::lock_guard lock(handlerMutex());
    previous_ = std::move(currentHandler());
    currentHandler() = std::move(handler);
}

ScopedFatalErrorHandler::~ScopedFatalErrorHandler() {
    std::lock_guard lock(handlerMutex());
    currentHandler() = std::move(previous_);
}

}  // namespace zarvo
