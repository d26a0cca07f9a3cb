#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// How subtitles are drawn: a set of text attributes, applied to the whole subtitle text.
/// An item's rules apply in order: a later rule's attribute replaces an earlier one's, and an
/// attribute no rule sets keeps its default (white "Sans" text of 18 points, no background).
struct ZARVO_EXPORT TextStyleRule {
    /// Red, green, blue and alpha from 0 to 1 (values outside are clamped).
    struct Color {
        /// Red, 0 to 1.
        double red = 1;
        /// Green, 0 to 1.
        double green = 1;
        /// Blue, 0 to 1.
        double blue = 1;
        /// Opacity, 0 (transparent) to 1.
        double alpha = 1;
        /// Equal components.
        bool operator==(const Color&) const = default;
    };

    /// The colour of the text.
    std::optional<Color> foregroundColor;
    /// Drawn as a shaded box behind the text, with this colour's alpha as its opacity.
    std::optional<Color> backgroundColor;
    /// Percent of the default size: 100 keeps it, 200 doubles it.
    std::optional<double> relativeFontSize;
    /// A font family name, such as "Sans" or "DejaVu Serif".
    std::optional<std::string> fontFamilyName;
    /// Bold text.
    std::optional<bool> bold;
    /// Italic text.
    std::optional<bool> italic;

    /// Equal attributes.
    bool operator==(const TextStyleRule&) const = default;
};

}  // namespace zarvo
