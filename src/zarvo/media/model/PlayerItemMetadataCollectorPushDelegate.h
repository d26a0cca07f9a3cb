#pragma once

#include <cstddef>
#include <vector>

#include "zarvo/media/model/DateRangeMetadataGroup.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class PlayerItemMetadataCollector;

// Receives the date-range metadata that a collector gathers from the playing media playlist.
class ZARVO_EXPORT PlayerItemMetadataCollectorPushDelegate {
public:
    virtual ~PlayerItemMetadataCollectorPushDelegate() = default;
    // `groups`: every group of the current playlist; the indexes name the groups that are new
    // since the last call and those whose attributes changed.
    virtual void metadataCollector(PlayerItemMetadataCollector& collector,
                                   const std::vector<DateRangeMetadataGroup>& groups,
                                   const std::vector<std::size_t>& indexesOfNewGroups,
                                   const std::vector<std::size_t>& indexesOfModifiedGroups) = 0;
};

}  // namespace zarvo
