#include "zarvo/tracking/ZMTrackingSessionStorageMechanism.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

namespace zarvo {
namespace {

// The error of the last failed system call.
std::error_code lastSystemError() {
    return {errno, std::generic_category()};
}

std::error_code writeAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t count = ::write(fd, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return lastSystemError();
        }
        if (count == 0) {
            return std::make_error_code(std::errc::no_space_on_device);
        }
        written += static_cast<std::size_t>(count);
    }
    return {};
}

// A name no other writer uses: the process id and a counter of this process.
std::string temporaryName(const std::string& finalName) {
    static std::atomic<unsigned long> counter{0};
    return finalName + ".tmp-" + std::to_string(::getpid()) + "-" +
           std::to_string(counter.fetch_add(1));
}

}  // namespace

std::filesystem::path ZMTrackingSessionStorageMechanism::fileUrl() const {
    return ZMTrackingSessionStorageUrls::directory() / sessionLocalId_.uuidString();
}

std::error_code ZMTrackingSessionStorageMechanism::save(
    const ZMTrackingSessionStorageData& data) const {
    std::string text;
    try {
        text = data.encode();
    } catch (const std::exception&) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    std::filesystem::path target = fileUrl();
    std::filesystem::path saving = ZMTrackingSessionStorageUrls::savingDirectory();
    std::filesystem::path temporary = saving / temporaryName(target.filename().string());
    // The folders are made when a write finds them missing, not stat-ed on every save.
    auto makeFolders = [&] {
        std::error_code made = AppDirectories::makeFolder(target.parent_path());
        return made ? made : AppDirectories::makeFolder(saving);
    };
    std::error_code error;

    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    int fd = ::open(temporary.c_str(), flags, 0644);
    if (fd < 0 && errno == ENOENT) {
        if ((error = makeFolders())) {
            return error;
        }
        fd = ::open(temporary.c_str(), flags, 0644);
    }
    if (fd < 0) {
        return lastSystemError();
    }
    // No fsync: the file is rewritten on every event, and the atomic swap below already
    // keeps a killed process from leaving a torn file.
    error = writeAll(fd, text);
    if (::close(fd) != 0 && !error) {
        error = lastSystemError();
    }
    if (error) {
        ::unlink(temporary.c_str());
        return error;
    }
    // Swapping the two names and dropping the old content is atomic like a rename over the
    // old file, and much cheaper on ext4, which flushes a file renamed over another one.
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
        ::unlink(temporary.c_str());
        return {};
    }
    auto renamed = [&]() -> std::error_code {
        return ::rename(temporary.c_str(), target.c_str()) == 0 ? std::error_code{}
                                                                : lastSystemError();
    };
    error = renamed();
    if (error == std::errc::no_such_file_or_directory && !(error = makeFolders())) {
        error = renamed();  // the session folder had gone
    }
    if (error) {
        ::unlink(temporary.c_str());
    }
    return error;
}

bool ZMTrackingSessionStorageMechanism::remove() const {
    std::error_code error;
    return std::filesystem::remove(fileUrl(), error);
}

}  // namespace zarvo
