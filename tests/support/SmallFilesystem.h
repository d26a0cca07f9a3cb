#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace zarvo::test {

// A filesystem of a few megabytes (tmpfs) mounted on a temporary folder, to fill up: where the
// process may mount one (as root), else not there at all (`why()` says so). Unmounted and
// removed when the object goes.
class SmallFilesystem {
public:
    explicit SmallFilesystem(std::size_t megabytes);
    ~SmallFilesystem();
    SmallFilesystem(const SmallFilesystem&) = delete;
    SmallFilesystem& operator=(const SmallFilesystem&) = delete;

    bool mounted() const { return mounted_; }
    const std::string& why() const { return why_; }
    const std::filesystem::path& path() const { return path_; }
    // Gives it another size, keeping what it holds.
    bool resize(std::size_t megabytes);

private:
    std::filesystem::path path_;
    bool mounted_ = false;
    std::string why_;
};

}  // namespace zarvo::test
