#include "zarvo/platform/DataFile.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace zarvo {

std::optional<Data> DataFile::read(const std::filesystem::path& path,
                                   std::optional<std::uintmax_t> maximumLength) {
    // A directory opens as a stream but fails on the first read, which libstdc++ reports by
    // throwing: only regular files are read.
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    if (maximumLength && std::filesystem::file_size(path, error) > *maximumLength) {
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    try {
        Data bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        if (in.bad()) {
            return std::nullopt;
        }
        return bytes;
    } catch (const std::ios_base::failure&) {
        return std::nullopt;
    }
}

bool DataFile::writeAtomically(const std::filesystem::path& path, const Data& data,
                               std::filesystem::perms mode) {
    const std::filesystem::path temporary = path.string() + ".partial";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                          static_cast<mode_t>(mode));
    if (fd < 0) {
        return false;
    }
    // The mode given at creation is reduced by the umask; a replaced file keeps its own.
    bool written = ::fchmod(fd, static_cast<mode_t>(mode)) == 0;
    std::size_t offset = 0;
    while (written && offset < data.size()) {
        const ssize_t count = ::write(fd, data.data() + offset, data.size() - offset);
        written = count > 0;
        offset += written ? static_cast<std::size_t>(count) : 0;
    }
    written = written && ::fsync(fd) == 0;
    written = ::close(fd) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace zarvo
