#include "zarvo/platform/DataFile.h"

#include <fstream>
#include <iterator>
#include <system_error>

#include "zarvo/platform/DurableFile.h"

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
    return !DurableFile::writeWhole(path, data.data(), data.size(), mode);
}

}  // namespace zarvo
