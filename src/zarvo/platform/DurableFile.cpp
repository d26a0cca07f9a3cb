#include "zarvo/platform/DurableFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zarvo {

namespace fs = std::filesystem;

namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

}  // namespace

std::variant<DurableFile, std::error_code> DurableFile::create(const fs::path& path,
                                                               fs::perms mode) {
    fs::path temporary = path;
    temporary += temporarySuffix;
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                          static_cast<mode_t>(mode));
    if (fd < 0) {
        return lastError();
    }
    // The mode given at creation is reduced by the umask, and a file left behind keeps its own.
    if (::fchmod(fd, static_cast<mode_t>(mode)) != 0) {
        const auto error = lastError();
        ::close(fd);
        ::unlink(temporary.c_str());
        return error;
    }
    return DurableFile(path, std::move(temporary), fd);
}

std::error_code DurableFile::writeWhole(const fs::path& path, const char* data, std::size_t length,
                                        fs::perms mode) {
    auto created = create(path, mode);
    if (auto* error = std::get_if<std::error_code>(&created)) {
        return *error;
    }
    auto& file = std::get<DurableFile>(created);
    if (auto error = file.write(data, length)) {
        return error;
    }
    return file.commit();
}

DurableFile::DurableFile(DurableFile&& other) noexcept
    : path_(std::move(other.path_)),
      temporary_(std::move(other.temporary_)),
      fd_(std::exchange(other.fd_, -1)),
      size_(other.size_) {}

DurableFile::~DurableFile() {
    discard();
}

void DurableFile::discard() {
    if (fd_ >= 0) {
        ::close(std::exchange(fd_, -1));
        ::unlink(temporary_.c_str());
    }
}

std::error_code DurableFile::write(const char* data, std::size_t length) {
    if (fd_ < 0) {
        return std::make_error_code(std::errc::bad_file_descriptor);
    }
    while (length > 0) {
        const ssize_t written = ::write(fd_, data, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written < 0 ? lastError() : std::make_error_code(std::errc::io_error);
        }
        data += written;
        length -= static_cast<std::size_t>(written);
        size_ += static_cast<std::size_t>(written);
    }
    return {};
}

std::error_code DurableFile::restart() {
    if (fd_ < 0) {
        return std::make_error_code(std::errc::bad_file_descriptor);
    }
    if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) {
        return lastError();
    }
    size_ = 0;
    return {};
}

std::error_code DurableFile::sync() {
    if (fd_ < 0) {
        return std::make_error_code(std::errc::bad_file_descriptor);
    }
    return ::fsync(fd_) == 0 ? std::error_code() : lastError();
}

std::error_code DurableFile::commit() {
    if (fd_ < 0) {
        return std::make_error_code(std::errc::bad_file_descriptor);
    }
    std::error_code error = sync();
    if (::close(std::exchange(fd_, -1)) != 0 && !error) {
        error = lastError();
    }
    if (!error && ::rename(temporary_.c_str(), path_.c_str()) != 0) {
        error = lastError();
    }
    if (error) {
        ::unlink(temporary_.c_str());
        return error;
    }
    return syncFolder(path_.parent_path().empty() ? fs::path(".") : path_.parent_path());
}

std::error_code DurableFile::syncFolder(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return lastError();
    }
    std::error_code error;
    if (::fsync(fd) != 0) {
        error = lastError();
    }
    ::close(fd);
    return error;
}

void DurableFile::removeLeftovers(const fs::path& folder) {
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->path().extension() == temporarySuffix) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
}

}  // namespace zarvo
