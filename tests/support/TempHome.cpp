#include "support/TempHome.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include "zarvo/platform/AppDirectories.h"

namespace zarvo::test {

TempHome::TempHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zm-home-XXXXXX").string();
    if (char* made = ::mkdtemp(pattern.data())) {
        path_ = made;
    }
    AppDirectories::setHome(path_);
}

TempHome::~TempHome() {
    AppDirectories::resetHome();
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace zarvo::test
