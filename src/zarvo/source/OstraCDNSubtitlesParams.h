#pragma once

#include <string>

#include "zarvo/platform/Url.h"

namespace zarvo {

// A side-loaded subtitle file to be offered as a subtitle rendition.
struct OstraCDNSubtitlesParams {
    std::string name;
    std::string langCode;
    Url url;
};

}  // namespace zarvo
