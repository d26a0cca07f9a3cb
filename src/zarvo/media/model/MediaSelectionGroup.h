#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The options an asset offers for one characteristic, in playlist order: the audio renditions
// (audible) or the subtitle and closed-caption renditions (legible) of its master playlist.
class ZARVO_EXPORT MediaSelectionGroup {
public:
    MediaSelectionGroup(MediaCharacteristic characteristic,
                        std::vector<MediaSelectionOption> options);

    const MediaCharacteristic& characteristic() const { return characteristic_; }
    const std::vector<MediaSelectionOption>& options() const { return options_; }
    // Legible groups may have nothing selected; audible ones may not.
    bool allowsEmptySelection() const;
    // The option with DEFAULT=YES (the first option of an audible group without one); nothing
    // for a legible group without a default.
    std::optional<MediaSelectionOption> defaultOption() const;
    bool contains(const MediaSelectionOption& option) const;

    bool operator==(const MediaSelectionGroup&) const = default;

private:
    MediaCharacteristic characteristic_;
    std::vector<MediaSelectionOption> options_;
};

}  // namespace zarvo
