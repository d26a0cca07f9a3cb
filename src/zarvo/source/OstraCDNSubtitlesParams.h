#pragma once

#include <string>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// A side-loaded subtitle file to be offered as a subtitle rendition.
struct ZARVO_EXPORT OstraCDNSubtitlesParams {
    std::string name;
    std::string langCode;
    Url url;
};

}  // namespace zarvo
