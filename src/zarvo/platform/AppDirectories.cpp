#include "zarvo/platform/AppDirectories.h"

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <vector>

#include "zarvo/platform/Bundle.h"

namespace zarvo {

namespace fs = std::filesystem;

namespace {

std::mutex& homeMutex() {
    static std::mutex mutex;
    return mutex;
}

std::optional<fs::path>& explicitHome() {
    static std::optional<fs::path> home;
    return home;
}

std::optional<fs::path> environmentPath(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return fs::path(value);
}

fs::path defaultHome() {
    // XDG only accepts absolute paths; a relative XDG_DATA_HOME is ignored.
    fs::path dataHome;
    if (auto xdg = environmentPath("XDG_DATA_HOME"); xdg && xdg->is_absolute()) {
        dataHome = *xdg;
    } else if (auto userHome = environmentPath("HOME")) {
        dataHome = *userHome / ".local" / "share";
    } else {
        dataHome = fs::temp_directory_path();
    }
    return dataHome / Bundle::main().identifier;
}

fs::path currentHome() {
    {
        std::lock_guard lock(homeMutex());
        if (explicitHome()) {
            return *explicitHome();
        }
    }
    if (auto fromEnvironment = environmentPath("ZM_HOME")) {
        return *fromEnvironment;
    }
    return defaultHome();
}

// Folders are made on every request so that a folder removed behind our back comes back.
fs::path ensureDirectory(const fs::path& path) {
    AppDirectories::makeFolder(path);
    return path;
}

// Resolves symbolic links of the existing part and "." / ".." everywhere.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    fs::path result = fs::weakly_canonical(path, error);
    if (error) {
        result = path;
    }
    return result.lexically_normal();
}

}  // namespace

void AppDirectories::setHome(const fs::path& home) {
    std::lock_guard lock(homeMutex());
    explicitHome() = fs::absolute(home);
}

void AppDirectories::resetHome() {
    std::lock_guard lock(homeMutex());
    explicitHome().reset();
}

fs::path AppDirectories::home() {
    const fs::path home = fs::absolute(currentHome());
    ensureDirectory(home);
    // A home made before it was kept private (or by the host) becomes private too.
    std::error_code error;
    const auto status = fs::status(home, error);
    if (!error && (status.permissions() & fs::perms::all) != fs::perms::owner_all) {
        fs::permissions(home, fs::perms::owner_all, fs::perm_options::replace, error);
    }
    return home;
}

std::error_code AppDirectories::makeFolder(const fs::path& folder) {
    std::vector<fs::path> missing;
    std::error_code error;
    for (fs::path at = folder; !at.empty() && !fs::exists(at, error);) {
        missing.push_back(at);
        const fs::path parent = at.parent_path();
        if (parent == at) {
            break;
        }
        at = parent;
    }
    for (auto made = missing.rbegin(); made != missing.rend(); ++made) {
        if (::mkdir(made->c_str(), 0700) != 0) {
            if (errno == EEXIST) {
                continue;  // made by another thread or process meanwhile
            }
            return {errno, std::generic_category()};
        }
        ::chmod(made->c_str(), 0700);  // the umask may have taken bits away
    }
    if (!fs::is_directory(folder, error)) {
        return error ? error : std::make_error_code(std::errc::not_a_directory);
    }
    return {};
}

fs::path AppDirectories::documents() {
    return ensureDirectory(home() / "Documents");
}

fs::path AppDirectories::library() {
    return ensureDirectory(home() / "Library");
}

fs::path AppDirectories::caches() {
    return ensureDirectory(library() / "Caches");
}

fs::path AppDirectories::preferences() {
    return ensureDirectory(library() / "Preferences");
}

bool AppDirectories::isInsideHome(const fs::path& path) {
    const fs::path homePath = home();
    const fs::path root = resolved(homePath);
    // Relative paths are taken relative to the home, where the SDK's stored paths start.
    const fs::path candidate = resolved(path.is_absolute() ? path : homePath / path);

    auto rootPart = root.begin();
    auto candidatePart = candidate.begin();
    for (; rootPart != root.end(); ++rootPart, ++candidatePart) {
        if (rootPart->empty()) {
            continue;  // the trailing empty element of a path that ends in a separator
        }
        if (candidatePart == candidate.end() || *rootPart != *candidatePart) {
            return false;
        }
    }
    for (; candidatePart != candidate.end(); ++candidatePart) {
        if (!candidatePart->empty()) {
            return true;
        }
    }
    return false;
}

}  // namespace zarvo
