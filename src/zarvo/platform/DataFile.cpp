#include "zarvo/platform/DataFile.h"

#include <fstream>
#include <iterator>

namespace zarvo {

std::optional<Data> DataFile::read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    Data bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) {
        return std::nullopt;
    }
    return bytes;
}

}  // namespace zarvo
