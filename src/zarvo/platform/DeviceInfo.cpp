#include "zarvo/platform/DeviceInfo.h"

#include <array>
#include <climits>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <sys/utsname.h>
#include <unistd.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/OsRelease.h"
#include "zarvo/platform/UserDefaults.h"
#include "zarvo/platform/Uuid.h"

namespace zarvo {

namespace {

constexpr const char* kVendorIdentifierKey = "ZMIdentifierForVendor";

std::optional<utsname> systemNames() {
    utsname names{};
    if (::uname(&names) != 0) {
        return std::nullopt;
    }
    return names;
}

// The os-release file does not change while the process runs.
const std::optional<OsRelease>& osRelease() {
    static const std::optional<OsRelease> release = OsRelease::system();
    return release;
}

}  // namespace

std::string DeviceInfo::machine() {
    auto names = systemNames();
    return names ? std::string(names->machine) : std::string();
}

std::string DeviceInfo::systemName() {
    if (const auto& release = osRelease()) {
        if (auto name = release->name(); name && !name->empty()) {
            return *name;
        }
    }
    return "Linux";
}

std::string DeviceInfo::systemVersion() {
    if (const auto& release = osRelease()) {
        if (auto version = release->versionId(); version && !version->empty()) {
            return *version;
        }
    }
    auto names = systemNames();
    return names ? std::string(names->release) : std::string();
}

std::string DeviceInfo::name() {
    std::array<char, HOST_NAME_MAX + 1> host{};
    if (::gethostname(host.data(), host.size() - 1) != 0) {
        return "localhost";
    }
    return std::string(host.data());
}

std::string DeviceInfo::model() {
    return "PC";
}

std::string DeviceInfo::identifierForVendor() {
    // Serialised so that two threads asking at once do not make two identifiers.
    static std::mutex mutex;
    // Kept in memory too, so a home whose store refuses writes still gives one identifier.
    static std::map<std::filesystem::path, std::string> unsaved;

    std::lock_guard lock(mutex);
    auto defaults = UserDefaults::standard();
    if (auto stored = defaults->string(kVendorIdentifierKey); stored && Uuid::isValid(*stored)) {
        return *stored;
    }
    const auto home = AppDirectories::home();
    if (auto found = unsaved.find(home); found != unsaved.end()) {
        return found->second;
    }
    std::string identifier = Uuid().uuidString();
    if (!defaults->setString(kVendorIdentifierKey, identifier)) {
        unsaved.emplace(home, identifier);
    }
    return identifier;
}

}  // namespace zarvo
