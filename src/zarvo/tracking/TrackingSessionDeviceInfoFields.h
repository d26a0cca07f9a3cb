#pragma once

#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"

namespace zarvo {

// Calls visit(name, field) for each field of a device info, in field order: the order of the
// query items and of the stored JSON object. `Info` is a ZMTrackingSessionDeviceInfo, const or
// not; the required fields are std::string, the others std::optional<std::string>.
template <typename Info, typename Visit>
void forEachDeviceInfoField(Info& info, Visit&& visit) {
    visit("agent", info.agent);
    visit("agentVersion", info.agentVersion);
    visit("deviceId", info.deviceId);
    visit("maker", info.maker);
    visit("mimeType", info.mimeType);
    visit("os", info.os);
    visit("osVersion", info.osVersion);
    visit("platform", info.platform);
    visit("playerVersion", info.playerVersion);
    visit("rendererType", info.rendererType);
    visit("terminal", info.terminal);
    visit("version", info.version);
}

}  // namespace zarvo
