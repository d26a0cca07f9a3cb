#include "zarvo/platform/Bundle.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "zarvo/platform/BuildVersion.h"

namespace zarvo {

namespace {

std::mutex& bundleMutex() {
    static std::mutex mutex;
    return mutex;
}

std::optional<Bundle>& declaredMain() {
    static std::optional<Bundle> bundle;
    return bundle;
}

std::string executableName() {
    static const std::string name = [] {
        std::error_code error;
        auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
        if (error || executable.filename().empty()) {
            return std::string("zarvo");
        }
        return executable.filename().string();
    }();
    return name;
}

}  // namespace

Bundle Bundle::main() {
    std::lock_guard lock(bundleMutex());
    if (declaredMain()) {
        return *declaredMain();
    }
    return Bundle{executableName(), "0", "0"};
}

void Bundle::setMain(Bundle bundle) {
    std::lock_guard lock(bundleMutex());
    declaredMain() = std::move(bundle);
}

void Bundle::resetMain() {
    std::lock_guard lock(bundleMutex());
    declaredMain().reset();
}

Bundle Bundle::sdk() {
    return Bundle{"com.zarvo.ZarvoMediaPlayer", ZARVO_SDK_VERSION, ZARVO_SDK_BUILD};
}

}  // namespace zarvo
