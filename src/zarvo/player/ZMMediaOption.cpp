#include "zarvo/player/ZMMediaOption.h"

#include <algorithm>

#include "zarvo/platform/Uuid.h"

namespace zarvo {

ZMMediaOption::ZMMediaOption(MediaSelectionOption option, MediaCharacteristic characteristic)
    : uid_(Uuid().uuidString()),
      title_(option.displayName()),
      type_(ZMMediaOptionType::mediaSelectionOption(std::move(option), std::move(characteristic))) {
}

ZMMediaOption::ZMMediaOption(std::string title, ZMMediaOptionType type)
    : uid_(type.isNoSubtitles() ? noSubtitlesUid : Uuid().uuidString()),
      title_(std::move(title)),
      type_(std::move(type)) {}

std::optional<MediaSelectionOption> ZMMediaOption::selectionOption(
    const MediaCharacteristic& characteristic) const {
    const auto* selection = std::get_if<ZMMediaOptionType::MediaSelection>(&type_.value());
    if (selection && selection->characteristic.rawValue == characteristic.rawValue) {
        return selection->option;
    }
    return std::nullopt;
}

std::optional<MediaSelectionOption> ZMMediaOption::audioSelectionOption() const {
    return selectionOption(MediaCharacteristic::audible());
}

std::optional<MediaSelectionOption> ZMMediaOption::internalSubtitleSelectionOption() const {
    return selectionOption(MediaCharacteristic::legible());
}

std::optional<float> ZMMediaOption::speedRate() const {
    if (const auto* speed = std::get_if<ZMMediaOptionType::SpeedRate>(&type_.value())) {
        return speed->rate;
    }
    return std::nullopt;
}

std::optional<Locale> ZMMediaOption::locale() const {
    if (const auto* selection = std::get_if<ZMMediaOptionType::MediaSelection>(&type_.value())) {
        if (const auto& identifier = selection->option.localeIdentifier()) {
            return Locale(*identifier);
        }
        return std::nullopt;
    }
    if (const auto* external = std::get_if<ZMMediaOptionType::External>(&type_.value())) {
        return external->subtitles.language();
    }
    return std::nullopt;
}

std::vector<ZMMediaOption> ZMMediaOption::list(const std::optional<MediaSelectionGroup>& group,
                                               const MediaCharacteristic& characteristic,
                                               const Mapping& map) {
    if (!group) {
        return {};
    }
    std::optional<std::vector<ZMMediaOption>> options;
    if (map) {
        options = map(group->options());
    }
    if (!options) {
        options.emplace();
        options->reserve(group->options().size());
        for (const auto& option : group->options()) {
            options->emplace_back(option, characteristic);
        }
    }
    // Closed captions are never offered, whoever built the list.
    std::erase_if(*options, [](const ZMMediaOption& option) {
        return option.title().find("CC") != std::string::npos;
    });
    return std::move(*options);
}

}  // namespace zarvo
