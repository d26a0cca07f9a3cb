#pragma once

#include <exception>
#include <string>

namespace zarvo {

// Work that threw where nothing can catch it (a queue's worker thread, the main loop with
// nobody driving it) stops the process through fatalError, naming the queue and the
// exception, instead of ending in std::terminate without a word. A test handler that
// throws is let off here: its exception could not unwind any further either.
void failOnEscapedException(const std::string& queueLabel, std::exception_ptr error) noexcept;

}  // namespace zarvo
