#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// How subtitles are drawn: a set of text attributes, applied to the whole subtitle text.
struct ZARVO_EXPORT TextStyleRule {
    // Red, green, blue and alpha from 0 to 1.
    struct Color {
        double red = 1;
        double green = 1;
        double blue = 1;
        double alpha = 1;
        bool operator==(const Color&) const = default;
    };

    std::optional<Color> foregroundColor;
    // Drawn as a shaded box behind the text, with this colour's alpha as its opacity.
    std::optional<Color> backgroundColor;
    // Percent of the default size: 100 keeps it, 200 doubles it.
    std::optional<double> relativeFontSize;
    std::optional<std::string> fontFamilyName;
    std::optional<bool> bold;
    std::optional<bool> italic;

    bool operator==(const TextStyleRule&) const = default;
};

}  // namespace zarvo
