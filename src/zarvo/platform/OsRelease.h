#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zarvo {

// The operating system's identification from an os-release file (KEY=value lines, values
// optionally quoted with shell-style escapes, "#" comments).
class OsRelease {
public:
    static OsRelease parse(std::string_view text);
    // Nothing when the file cannot be read.
    static std::optional<OsRelease> read(const std::filesystem::path& path);
    // /etc/os-release, falling back to /usr/lib/os-release.
    static std::optional<OsRelease> system();

    std::optional<std::string> value(const std::string& key) const;
    std::optional<std::string> name() const { return value("NAME"); }
    std::optional<std::string> versionId() const { return value("VERSION_ID"); }

private:
    std::map<std::string, std::string> values_;
};

}  // namespace zarvo
