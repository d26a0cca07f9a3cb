#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

// The device and player a tracking session reports from.
struct ZMTrackingSessionDeviceInfo {
    std::optional<std::string> agent;
    std::optional<std::string> agentVersion;
    std::string deviceId;
    std::optional<std::string> maker;
    std::optional<std::string> mimeType;
    std::optional<std::string> os;
    std::optional<std::string> osVersion;
    std::optional<std::string> platform;
    std::optional<std::string> playerVersion;
    std::string rendererType;
    std::optional<std::string> terminal;
    std::string version;

    // Every field from the arguments, in field order.
    ZMTrackingSessionDeviceInfo(std::optional<std::string> agent,
                                std::optional<std::string> agentVersion, std::string deviceId,
                                std::optional<std::string> maker,
                                std::optional<std::string> mimeType, std::optional<std::string> os,
                                std::optional<std::string> osVersion,
                                std::optional<std::string> platform,
                                std::optional<std::string> playerVersion, std::string rendererType,
                                std::optional<std::string> terminal, std::string version);
    // The description of this machine, the host application and the SDK.
    ZMTrackingSessionDeviceInfo();

    // The present fields as query items, in field order.
    std::vector<UrlQueryItem> queryItems() const;

    bool operator==(const ZMTrackingSessionDeviceInfo&) const = default;
};

}  // namespace zarvo
