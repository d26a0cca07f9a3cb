#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// Writes the sample content (see SampleContent) into an empty folder with the ffmpeg tool:
// 30 seconds of test pattern and two tones, 2-second segments, three small variants.
class ContentGenerator {
public:
    // Everything that shapes the output; its hash names the cache folder.
    static std::string recipe();
    // The AES-128 key of the protected copy.
    static Data contentKey();

    // Fills `directory`; an error names the failed step and the end of the tool's log.
    static std::optional<Error> generate(const std::filesystem::path& directory);
};

}  // namespace zarvo::origin
