#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/MetadataItem.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The timed metadata of one EXT-X-DATERANGE tag: its ID, CLASS, dates, and its other
// attributes (the client attributes "X-...", SCTE-35 ones) as items, in written order.
struct ZARVO_EXPORT DateRangeMetadataGroup {
    std::string identifier;
    std::optional<std::string> classifyingLabel;
    Date startDate;
    std::optional<Date> endDate;
    std::vector<MetadataItem> items;

    bool operator==(const DateRangeMetadataGroup&) const = default;
};

}  // namespace zarvo
