#pragma once

#include <filesystem>
#include <optional>

#include "zarvo/platform/Data.h"

namespace zarvo {

// Whole-file reads.
struct DataFile {
    // The file's bytes, or nothing when it cannot be opened or read.
    static std::optional<Data> read(const std::filesystem::path& path);
};

}  // namespace zarvo
