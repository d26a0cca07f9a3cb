#include "zarvo/media/model/MediaSelectionGroup.h"

#include <algorithm>

namespace zarvo {

MediaSelectionGroup::MediaSelectionGroup(MediaCharacteristic characteristic,
                                         std::vector<MediaSelectionOption> options)
    : characteristic_(std::move(characteristic)), options_(std::move(options)) {}

bool MediaSelectionGroup::allowsEmptySelection() const {
    return characteristic_ == MediaCharacteristic::legible();
}

std::optional<MediaSelectionOption> MediaSelectionGroup::defaultOption() const {
    for (const auto& option : options_) {
        if (option.rendition().isDefault) {
            return option;
        }
    }
    if (!allowsEmptySelection() && !options_.empty()) {
        return options_.front();
    }
    return std::nullopt;
}

bool MediaSelectionGroup::contains(const MediaSelectionOption& option) const {
    return std::find(options_.begin(), options_.end(), option) != options_.end();
}

}  // namespace zarvo
