#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>
#include <zarvo/platform/Url.h>
#include <zarvo/source/ZMFairPlayUrls.h>

namespace gtkplayer {

constexpr const char* usage =
    "usage: zm-gtk-player [--cert URL --license URL] [--quit-after SECONDS] [URL]";

struct Options {
    // The stream to open at start.
    std::optional<zarvo::Url> url;
    // Where keys of protected streams come from, for playback and downloads alike.
    std::optional<zarvo::ZMFairPlayUrls> drm;
    // Quit by itself after this long (for automated runs).
    std::optional<double> quitAfterSeconds;
};

// The options in `arguments` (without the program's name), or what is wrong with them.
std::variant<Options, std::string> parseOptions(const std::vector<std::string>& arguments);

// A stream address as a user types it: an absolute http, https or file URL, or an absolute
// file path; nothing for anything else.
std::optional<zarvo::Url> streamAddress(std::string_view text);

}  // namespace gtkplayer
