#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMInternalTrackingEvent.h"
#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"
#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"
#include "zarvo/tracking/ZMTrackingSessionStorageDataVersion.h"
#include "zarvo/tracking/ZMTrackingSessionStorageState.h"

namespace zarvo {

// The content of a stored session file.
struct ZARVO_EXPORT ZMTrackingSessionStorageData {
    ZMTrackingSessionStorageDataVersion storageFileVersion =
        ZMTrackingSessionStorageDataVersion::v1;
    ZMTrackingSessionDeviceInfo deviceInfo;
    ZMTrackingSessionContentInfo contentInfo;
    ZMTrackingSessionStorageState sessionState = ZMTrackingSessionStorageState::none;
    std::vector<ZMInternalTrackingEvent> events;  // pending, oldest first

    ZMTrackingSessionStorageData(ZMTrackingSessionDeviceInfo deviceInfo,
                                 ZMTrackingSessionContentInfo contentInfo)
        : deviceInfo(std::move(deviceInfo)), contentInfo(std::move(contentInfo)) {}

    // One compact JSON object with the keys "storageFileVersion", "deviceInfo",
    // "contentInfo", "sessionState" and "events", in that order.
    std::string encode() const;
    // Nothing when the text is not such an object.
    static std::optional<ZMTrackingSessionStorageData> decode(std::string_view text);

    bool operator==(const ZMTrackingSessionStorageData&) const = default;
};

}  // namespace zarvo
