#include "support/SmallFilesystem.h"

#include <cerrno>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

namespace zarvo::test {

namespace fs = std::filesystem;

namespace {

std::string sizeOption(std::size_t megabytes) {
    return "size=" + std::to_string(megabytes) + "m,mode=0700";
}

}  // namespace

SmallFilesystem::SmallFilesystem(std::size_t megabytes) {
    char folder[] = "/tmp/zm-small-fs-XXXXXX";
    if (::mkdtemp(folder) == nullptr) {
        why_ = std::string("no temporary folder: ") + std::strerror(errno);
        return;
    }
    path_ = folder;
    if (::mount("tmpfs", folder, "tmpfs", 0, sizeOption(megabytes).c_str()) != 0) {
        why_ = std::string("cannot mount a small filesystem here (") + std::strerror(errno) +
               "); it needs root";
        return;
    }
    mounted_ = true;
}

SmallFilesystem::~SmallFilesystem() {
    if (mounted_) {
        ::umount2(path_.c_str(), MNT_DETACH);
    }
    if (!path_.empty()) {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
}

bool SmallFilesystem::resize(std::size_t megabytes) {
    return mounted_ &&
           ::mount("tmpfs", path_.c_str(), "tmpfs", MS_REMOUNT, sizeOption(megabytes).c_str()) == 0;
}

}  // namespace zarvo::test
