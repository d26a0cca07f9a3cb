#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// Runs a command-line tool (found on PATH) to its end, its output appended to `log`. An error
// when it cannot start (naming the package to install when it is missing) or fails (with the
// end of its log).
std::optional<Error> runTool(const std::vector<std::string>& args,
                             const std::filesystem::path& log);

// Writes `contents` to `path`, replacing it; false on failure.
bool writeTextFile(const std::filesystem::path& path, const std::string& contents);

// An error of the generated content's domain.
Error contentError(const std::string& description);

}  // namespace zarvo::origin
