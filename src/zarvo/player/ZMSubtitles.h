#pragma once

#include <string>
#include <utility>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Locale.h"
#include "zarvo/player/ZMSubtitleMimeType.h"

namespace zarvo {

// A side-loaded subtitle file: where it is, how it is shown, its language and format.
class ZARVO_EXPORT ZMSubtitles {
public:
    ZMSubtitles(std::string url, std::string title, Locale language, ZMSubtitleMimeType mimeType)
        : url_(std::move(url)),
          title_(std::move(title)),
          language_(std::move(language)),
          mimeType_(mimeType) {}

    const std::string& url() const { return url_; }
    const std::string& title() const { return title_; }
    const Locale& language() const { return language_; }
    ZMSubtitleMimeType mimeType() const { return mimeType_; }

    bool operator==(const ZMSubtitles&) const = default;

private:
    std::string url_;
    std::string title_;
    Locale language_;
    ZMSubtitleMimeType mimeType_;
};

}  // namespace zarvo
