#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "zarvo/platform/Bundle.h"
#include "zarvo/platform/DeviceInfo.h"

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

// Each field with its name, in field (and query) order.
template <typename Info, typename Visit>
void forEachField(Info& info, Visit&& visit) {
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
    forEachField(*this, visit);
    return items;
}

Json ZMTrackingSessionDeviceInfo::toJson() const {
    Json json = Json::object();
    auto visit = [&](const char* name, const auto& field) {
        if constexpr (std::is_same_v<std::decay_t<decltype(field)>, std::string>) {
            json[name] = field;
        } else if (field) {
            json[name] = *field;
        }
    };
    forEachField(*this, visit);
    return json;
}

std::optional<ZMTrackingSessionDeviceInfo> ZMTrackingSessionDeviceInfo::fromJson(const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    ZMTrackingSessionDeviceInfo info({}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {});
    bool valid = true;
    auto visit = [&](const char* name, auto& field) {
        auto found = json.find(name);
        bool present = found != json.end() && !found->is_null();
        if (present && !found->is_string()) {
            valid = false;
            return;
        }
        if constexpr (std::is_same_v<std::decay_t<decltype(field)>, std::string>) {
            if (!present) {
                valid = false;
                return;
            }
            field = found->template get<std::string>();
        } else if (present) {
            field = found->template get<std::string>();
        }
    };
    forEachField(info, visit);
    if (!valid) {
        return std::nullopt;
    }
    return info;
}

}  // namespace zarvo
