#include "zarvo/platform/Log.h"

#include <cstdio>
#include <string>

namespace zarvo {

void logDiagnostic(std::string_view tag, std::string_view text) {
    // One write per line, so lines from several threads never interleave.
    std::string line = "zarvo [";
    line.append(tag).append("] ").append(text).append("\n");
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace zarvo
