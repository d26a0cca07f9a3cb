#pragma once

#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/file.h>
#include <unistd.h>

#include "zarvo/platform/AppDirectories.h"

namespace zarvo::zmplay {

// One zmplay process at a time runs the downloads of a home: the others wait their turn (the
// download list and the download session are each one process's at a time).
class DownloadLock {
public:
    // Waits for the lock, saying so when another process holds it.
    explicit DownloadLock(const char* command) {
        const auto directory = AppDirectories::library() / "com.zarvo.downloads";
        AppDirectories::makeFolder(directory);
        fd_ = ::open((directory / "zmplay.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ < 0) {
            return;
        }
        if (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            std::cerr << "zmplay " << command
                      << ": queued behind the downloads of another zmplay process\n";
            ::flock(fd_, LOCK_EX);
        }
    }
    ~DownloadLock() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    DownloadLock(const DownloadLock&) = delete;
    DownloadLock& operator=(const DownloadLock&) = delete;

private:
    int fd_ = -1;
};

}  // namespace zarvo::zmplay
