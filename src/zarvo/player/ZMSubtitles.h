#pragma once

#include <string>
#include <utility>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Locale.h"
#include "zarvo/player/ZMSubtitleMimeType.h"

namespace zarvo {

/// A side-loaded subtitle file: where it is, how it is shown, its language and format. The
/// player does not load such files: they are carried for the application (see
/// ZMPlaybackSource::externalSubtitles()).
class ZARVO_EXPORT ZMSubtitles {
public:
    /// A file at `url`, shown as `title`, in `language` and `mimeType`.
    ZMSubtitles(std::string url, std::string title, Locale language, ZMSubtitleMimeType mimeType)
        : url_(std::move(url)),
          title_(std::move(title)),
          language_(std::move(language)),
          mimeType_(mimeType) {}

    /// Where the file is.
    const std::string& url() const { return url_; }
    /// The name to show in a subtitle menu.
    const std::string& title() const { return title_; }
    /// The language of the text.
    const Locale& language() const { return language_; }
    /// The file's format.
    ZMSubtitleMimeType mimeType() const { return mimeType_; }

    /// Equal in every field.
    bool operator==(const ZMSubtitles&) const = default;

private:
    std::string url_;
    std::string title_;
    Locale language_;
    ZMSubtitleMimeType mimeType_;
};

}  // namespace zarvo
