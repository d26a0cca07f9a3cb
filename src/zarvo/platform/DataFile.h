#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "zarvo/platform/Data.h"

namespace zarvo {

// Whole-file reads and writes.
struct DataFile {
    // The file's bytes, or nothing when it cannot be opened or read, or is longer than
    // `maximumLength`.
    static std::optional<Data> read(const std::filesystem::path& path,
                                    std::optional<std::uintmax_t> maximumLength = std::nullopt);
    // Replaces the file with `data` in one step, durably (see DurableFile), with permission
    // bits `mode`. False, with the old file untouched, on any failure.
    static bool writeAtomically(const std::filesystem::path& path, const Data& data,
                                std::filesystem::perms mode);
};

}  // namespace zarvo
