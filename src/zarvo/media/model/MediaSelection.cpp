#include "zarvo/media/model/MediaSelection.h"

namespace zarvo {

std::optional<MediaSelectionOption> MediaSelection::selectedMediaOption(
    const MediaSelectionGroup& group) const {
    auto found = selected_.find(group.characteristic());
    if (found == selected_.end() || !found->second || !group.contains(*found->second)) {
        return std::nullopt;
    }
    return found->second;
}

void MediaSelection::select(const std::optional<MediaSelectionOption>& option,
                            const MediaSelectionGroup& group) {
    if (option && !group.contains(*option)) {
        return;
    }
    selected_[group.characteristic()] = option;
}

}  // namespace zarvo
