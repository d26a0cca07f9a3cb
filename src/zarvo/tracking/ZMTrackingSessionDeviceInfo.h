#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

/// The device and player a tracking session reports from. Every present field goes into the
/// initialisation beacon as a query item of its name; `version` also into every events beacon.
/// The values below are those of the default constructor.
struct ZARVO_EXPORT ZMTrackingSessionDeviceInfo {
    /// The machine, as uname gives it ("x86_64").
    std::optional<std::string> agent;
    /// The host application's version and build, `<version> (<build>)`: "0 (0)", as the
    /// public headers offer no way to declare them.
    std::optional<std::string> agentVersion;
    /// A random UUID text, lower-cased, made once per application home and kept in its user
    /// defaults under "ZMIdentifierForVendor".
    std::string deviceId;
    /// "Apple".
    std::optional<std::string> maker;
    /// "HLS".
    std::optional<std::string> mimeType;
    /// The NAME of /etc/os-release ("Debian GNU/Linux"), "Linux" without one.
    std::optional<std::string> os;
    /// The VERSION_ID of /etc/os-release ("12"), the kernel release without one.
    std::optional<std::string> osVersion;
    /// The os text, upper-cased.
    std::optional<std::string> platform;
    /// The SDK's version (ZMPlayer::version()).
    std::optional<std::string> playerVersion;
    /// "AVPLAYER".
    std::string rendererType;
    /// "PC".
    std::optional<std::string> terminal;
    /// "V1", the beacons' format version.
    std::string version;

    /// Every field from the arguments, in field order.
    ZMTrackingSessionDeviceInfo(std::optional<std::string> agent,
                                std::optional<std::string> agentVersion, std::string deviceId,
                                std::optional<std::string> maker,
                                std::optional<std::string> mimeType, std::optional<std::string> os,
                                std::optional<std::string> osVersion,
                                std::optional<std::string> platform,
                                std::optional<std::string> playerVersion, std::string rendererType,
                                std::optional<std::string> terminal, std::string version);
    /// The description of this machine, the host application and the SDK.
    ZMTrackingSessionDeviceInfo();

    /// The present fields as query items, in field order.
    std::vector<UrlQueryItem> queryItems() const;

    /// Equal in every field.
    bool operator==(const ZMTrackingSessionDeviceInfo&) const = default;
};

}  // namespace zarvo
