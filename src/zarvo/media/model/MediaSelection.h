#pragma once

#include <map>
#include <optional>
#include <string>

#include "zarvo/media/model/MediaSelectionGroup.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// A choice of at most one option per media selection group (by characteristic): what an item
// plays, or what a download fetches.
class ZARVO_EXPORT MediaSelection {
public:
    // The option selected in `group`, or nothing.
    std::optional<MediaSelectionOption> selectedMediaOption(const MediaSelectionGroup& group) const;
    // Selects `option` in `group` (nothing clears the group's selection). An option that is
    // not in the group is ignored.
    void select(const std::optional<MediaSelectionOption>& option,
                const MediaSelectionGroup& group);

    bool operator==(const MediaSelection&) const = default;

private:
    std::map<MediaCharacteristic, std::optional<MediaSelectionOption>> selected_;
};

}  // namespace zarvo
