#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"

#include <algorithm>
#include <cctype>
#include <type_traits>
#include <utility>

#include "zarvo/platform/Bundle.h"
#include "zarvo/platform/DeviceInfo.h"
#include "zarvo/tracking/TrackingSessionDeviceInfoFields.h"

namespace zarvo {
namespace {

std::string upperCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string lowerCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// "2.3.1 (418)" from a short version and a build number; empty without a short version.
std::string hostVersionText() {
    Bundle host = Bundle::main();
    if (host.shortVersion.empty()) {
        return {};
    }
    if (host.buildVersion.empty()) {
        return host.shortVersion;
    }
    return host.shortVersion + " (" + host.buildVersion + ")";
}

// A Linux machine has no phone, tablet or TV interface idiom: it reports as a PC.
constexpr const char* linuxTerminal = "PC";

}  // namespace

ZMTrackingSessionDeviceInfo::ZMTrackingSessionDeviceInfo(
    std::optional<std::string> agent, std::optional<std::string> agentVersion, std::string deviceId,
    std::optional<std::string> maker, std::optional<std::string> mimeType,
    std::optional<std::string> os, std::optional<std::string> osVersion,
    std::optional<std::string> platform, std::optional<std::string> playerVersion,
    std::string rendererType, std::optional<std::string> terminal, std::string version)
    : agent(std::move(agent)),
      agentVersion(std::move(agentVersion)),
      deviceId(std::move(deviceId)),
      maker(std::move(maker)),
      mimeType(std::move(mimeType)),
      os(std::move(os)),
      osVersion(std::move(osVersion)),
      platform(std::move(platform)),
      playerVersion(std::move(playerVersion)),
      rendererType(std::move(rendererType)),
      terminal(std::move(terminal)),
      version(std::move(version)) {}

ZMTrackingSessionDeviceInfo::ZMTrackingSessionDeviceInfo()
    : agent(DeviceInfo::machine()),
      agentVersion(hostVersionText()),
      deviceId(lowerCased(DeviceInfo::identifierForVendor())),
      maker("Apple"),
      mimeType("HLS"),
      os(DeviceInfo::systemName()),
      osVersion(DeviceInfo::systemVersion()),
      platform(upperCased(DeviceInfo::systemName())),
      playerVersion(Bundle::sdk().shortVersion),
      rendererType("AVPLAYER"),
      terminal(linuxTerminal),
      version("V1") {}

std::vector<UrlQueryItem> ZMTrackingSessionDeviceInfo::queryItems() const {
    std::vector<UrlQueryItem> items;
    auto visit = [&](const char* name, const auto& field) {
        if constexpr (std::is_same_v<std::decay_t<decltype(field)>, std::string>) {
            items.push_back({name, field});
        } else if (field) {
            items.push_back({name, *field});
        }
    };
    forEachDeviceInfoField(*this, visit);
    return items;
}

}  // namespace zarvo
