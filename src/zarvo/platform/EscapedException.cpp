#include "zarvo/platform/EscapedException.h"

#include "zarvo/platform/FatalError.h"

namespace zarvo {
namespace {

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "an exception that is not a std::exception";
    }
}

}  // namespace

void failOnEscapedException(const std::string& queueLabel, std::exception_ptr error) noexcept {
    try {
        fatalError("work on the queue \"" + queueLabel + "\" threw: " + describe(error));
    } catch (...) {
    }
}

}  // namespace zarvo
