#pragma once

#include <string_view>

namespace zarvo {

// Our own diagnostics: one line on standard error, "zarvo [tag] text". The system's own
// printed texts keep their places on standard output and do not come through here.
void logDiagnostic(std::string_view tag, std::string_view text);

}  // namespace zarvo
