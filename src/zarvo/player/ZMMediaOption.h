#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionGroup.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Locale.h"
#include "zarvo/player/ZMMediaOptionType.h"

namespace zarvo {

/// One item the host shows in an audio, subtitle or speed menu, whatever its origin.
class ZARVO_EXPORT ZMMediaOption {
public:
    /// The identifier every option of type noSubtitles shares: "no-subtitles".
    static constexpr const char* noSubtitlesUid = "no-subtitles";

    /// An option of the asset: a fresh identifier, the option's display name as title.
    ZMMediaOption(MediaSelectionOption option, MediaCharacteristic characteristic);
    /// Any other option: "no-subtitles" as identifier for noSubtitles, else a fresh one.
    ZMMediaOption(std::string title, ZMMediaOptionType type);

    /// The identifier: a random UUID text, or "no-subtitles".
    const std::string& uid() const { return uid_; }
    /// The text to show.
    const std::string& title() const { return title_; }
    /// Replaces the text to show.
    void setTitle(std::string title) { title_ = std::move(title); }
    /// What the option stands for.
    const ZMMediaOptionType& type() const { return type_; }
    /// Replaces what the option stands for (the identifier stays).
    void setType(ZMMediaOptionType type) { type_ = std::move(type); }

    /// The asset's option when this is one for the audible characteristic.
    std::optional<MediaSelectionOption> audioSelectionOption() const;
    /// The asset's option when this is one for the legible characteristic.
    std::optional<MediaSelectionOption> internalSubtitleSelectionOption() const;
    /// The rate of a speed option; nothing for the others.
    std::optional<float> speedRate() const;
    /// The asset option's locale, or the external file's language; nothing for the others.
    std::optional<Locale> locale() const;

    /// Equal identifier, title and type.
    bool operator==(const ZMMediaOption&) const = default;

    /// Lets the host replace the default list; nothing keeps the default.
    using Mapping = std::function<std::optional<std::vector<ZMMediaOption>>(
        const std::vector<MediaSelectionOption>&)>;

    /// The option list for `characteristic`: empty without a group; otherwise the list `map`
    /// gives for all options of the group (when `map` is set and gives one) or one option per
    /// group option, in order. Options whose title contains "CC" are left out, whoever made
    /// the list.
    static std::vector<ZMMediaOption> list(const std::optional<MediaSelectionGroup>& group,
                                           const MediaCharacteristic& characteristic,
                                           const Mapping& map = {});

private:
    std::optional<MediaSelectionOption> selectionOption(
        const MediaCharacteristic& characteristic) const;

    std::string uid_;
    std::string title_;
    ZMMediaOptionType type_;
};

}  // namespace zarvo
