#pragma once

#include <utility>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Locale.h"

namespace zarvo {

// The host's preferred audio and subtitle languages for a source, most preferred first.
class ZARVO_EXPORT PreferredMultimediaLanguages {
public:
    PreferredMultimediaLanguages() = default;
    PreferredMultimediaLanguages(std::vector<Locale> audio, std::vector<Locale> subtitles)
        : audio_(std::move(audio)), subtitles_(std::move(subtitles)) {}

    const std::vector<Locale>& audio() const { return audio_; }
    const std::vector<Locale>& subtitles() const { return subtitles_; }

    bool operator==(const PreferredMultimediaLanguages&) const = default;

private:
    std::vector<Locale> audio_;
    std::vector<Locale> subtitles_;
};

}  // namespace zarvo
