#pragma once

#include <optional>
#include <string>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// One choice in a media selection group: an audio, subtitle or closed-caption rendition of
/// the master playlist (EXT-X-MEDIA). Options are values; two are equal when they name the same
/// rendition of the same group.
class ZARVO_EXPORT MediaSelectionOption {
public:
    /// The TYPE of the rendition: AUDIO, VIDEO, SUBTITLES or CLOSED-CAPTIONS.
    enum class MediaType { audio, video, subtitle, closedCaption };

    /// The attributes of the rendition's EXT-X-MEDIA tag.
    struct Rendition {
        /// TYPE.
        MediaType mediaType = MediaType::audio;
        std::string groupId;                  ///< GROUP-ID
        std::string name;                     ///< NAME
        std::optional<std::string> language;  ///< LANGUAGE (an RFC 5646 tag)
        /// ASSOC-LANGUAGE.
        std::optional<std::string> assocLanguage;
        std::optional<std::string> characteristics;  ///< CHARACTERISTICS
        std::optional<std::string> instreamId;       ///< INSTREAM-ID of closed captions
        /// DEFAULT=YES.
        bool isDefault = false;
        /// AUTOSELECT=YES.
        bool autoselect = false;
        /// FORCED=YES.
        bool forced = false;
        bool hasUri = false;  ///< a playlist of its own (closed captions ride in the video)

        /// Equal attributes.
        bool operator==(const Rendition&) const = default;
    };

    /// An audio option with empty attributes.
    MediaSelectionOption() = default;
    /// The option of `rendition`.
    explicit MediaSelectionOption(Rendition rendition) : rendition_(std::move(rendition)) {}

    /// NAME.
    const std::string& displayName() const { return rendition_.name; }
    /// The LANGUAGE tag, which names the option's locale; nothing without one.
    const std::optional<std::string>& localeIdentifier() const { return rendition_.language; }
    /// The same tag, as an extended language tag.
    const std::optional<std::string>& extendedLanguageTag() const { return rendition_.language; }
    /// The TYPE of the rendition.
    MediaType mediaType() const { return rendition_.mediaType; }
    /// "soun", "vide", "sbtl" or "clcp".
    std::string mediaTypeCode() const;
    /// Whether the option is of `characteristic`: audio options are audible, video options
    /// visual, subtitles and closed captions legible.
    bool hasMediaCharacteristic(const MediaCharacteristic& characteristic) const;
    /// Always true.
    bool isPlayable() const { return true; }

    /// All the attributes of the rendition.
    const Rendition& rendition() const { return rendition_; }

    /// Equal renditions.
    bool operator==(const MediaSelectionOption&) const = default;

private:
    Rendition rendition_;
};

}  // namespace zarvo
