#include "zarvo/tracking/ZMTrackingSessionStorageMechanism.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

namespace zarvo {
namespace {

bool writeAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t count = ::write(fd, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(count);
    }
    return true;
}

// A name no other writer uses; a leftover one is not UUID text, so restore clears it away.
std::string temporaryName(const std::string& finalName) {
    static std::atomic<unsigned long> counter{0};
    return "." + finalName + ".tmp-" + std::to_string(::getpid()) + "-" +
           std::to_string(counter.fetch_add(1));
}

}  // namespace

std::filesystem::path ZMTrackingSessionStorageMechanism::fileUrl() const {
    return ZMTrackingSessionStorageUrls::directory() / sessionLocalId_.uuidString();
}

bool ZMTrackingSessionStorageMechanism::save(const ZMTrackingSessionStorageData& data) const {
    std::string text;
    try {
        text = data.encode();
    } catch (const std::exception&) {
        return false;
    }
    std::filesystem::path target = fileUrl();
    std::error_code ignored;
    std::filesystem::create_directories(target.parent_path(), ignored);
    std::filesystem::path temporary =
        target.parent_path() / temporaryName(target.filename().string());

    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    // No fsync: the file is rewritten on every event, and the atomic swap below already
    // keeps a killed process from leaving a torn file.
    bool written = writeAll(fd, text);
    written = ::close(fd) == 0 && written;
    if (!written) {
        ::unlink(temporary.c_str());
        return false;
    }
    // Swapping the two names and dropping the old content is atomic like a rename over the
    // old file, and much cheaper on ext4, which flushes a file renamed over another one.
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
        ::unlink(temporary.c_str());
        return true;
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool ZMTrackingSessionStorageMechanism::remove() const {
    std::error_code error;
    return std::filesystem::remove(fileUrl(), error);
}

}  // namespace zarvo
