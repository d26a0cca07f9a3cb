#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// The application home and its standard folders. The home is, in order of precedence:
/// the path the host set with setHome(), the ZM_HOME environment variable, or
/// `$XDG_DATA_HOME/<application id>` (`~/.local/share/<application id>` without XDG_DATA_HOME),
/// where the application id is Bundle::main().identifier. Folders are created on demand, and
/// everything under the home is the user's alone: folders 0700, whatever the umask.
class ZARVO_EXPORT AppDirectories {
public:
    /// Makes `home` the application home, before ZM_HOME and the default.
    static void setHome(const std::filesystem::path& home);
    /// Forgets a home set by setHome(), so ZM_HOME or the default applies again.
    static void resetHome();

    /// The application home, created if missing.
    static std::filesystem::path home();
    /// `<home>/Documents`.
    static std::filesystem::path documents();
    /// `<home>/Library`.
    static std::filesystem::path library();
    /// `<home>/Library`.Caches.
    static std::filesystem::path caches();
    /// `<home>/Library`.Preferences.
    static std::filesystem::path preferences();

    /// Makes `folder` and its missing parents, each one made 0700 whatever the umask (folders
    /// that exist keep their permissions).
    static std::error_code makeFolder(const std::filesystem::path& folder);

    /// True when `path`, with "." and ".." resolved and symbolic links followed as far as they
    /// exist, lies inside the home (the home itself excluded). A relative path is taken
    /// relative to the home, like the home-relative paths the SDK stores.
    static bool isInsideHome(const std::filesystem::path& path);
};

}  // namespace zarvo
