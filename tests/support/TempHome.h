#pragma once

#include <filesystem>

namespace zarvo::test {

// A fresh application home in a temporary folder for the lifetime of the object; it becomes
// AppDirectories' home and is removed afterwards.
class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace zarvo::test
