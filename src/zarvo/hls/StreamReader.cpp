#include "zarvo/hls/StreamReader.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "zarvo/hls/Utf8Text.h"
#include "zarvo/platform/FatalError.h"

namespace zarvo {

std::unique_ptr<StreamReader> StreamReader::make(const std::string& path,
                                                 const std::string& delimiter, Encoding encoding,
                                                 std::int64_t chunkSize) {
    if (delimiter.empty() || !utf8::isValid(delimiter) || chunkSize <= 0) {
        return nullptr;
    }
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    return std::unique_ptr<StreamReader>(new StreamReader(fd, delimiter, encoding, chunkSize));
}

StreamReader::StreamReader(int fileDescriptor, std::string delimiter, Encoding encoding,
                           std::int64_t chunkSize)
    : encoding_(encoding),
      chunkSize_(chunkSize),
      fileHandle_(fileDescriptor),
      delimData_(std::move(delimiter)) {
    buffer_.reserve(static_cast<std::size_t>(chunkSize));
}

StreamReader::~StreamReader() {
    close();
}

void StreamReader::close() {
    if (fileHandle_) {
        ::close(*fileHandle_);
        fileHandle_.reset();
    }
}

std::optional<std::string> StreamReader::decode(std::size_t length) const {
    std::string_view bytes(buffer_.data(), length);
    if (!utf8::isValid(bytes)) {
        return std::nullopt;
    }
    return std::string(bytes);
}

std::optional<std::string> StreamReader::nextLine() {
    if (!fileHandle_) {
        fatalError("StreamReader: nextLine() called on a closed reader");
    }
    if (atEof_) {
        return std::nullopt;
    }
    std::size_t found;
    while ((found = buffer_.find(delimData_, searched_)) == std::string::npos) {
        // Bytes that cannot begin the delimiter need no second search after the next read.
        if (buffer_.size() >= delimData_.size()) {
            searched_ = buffer_.size() - delimData_.size() + 1;
        }
        std::size_t old = buffer_.size();
        buffer_.resize(old + static_cast<std::size_t>(chunkSize_));
        ssize_t count;
        do {
            count =
                ::read(*fileHandle_, buffer_.data() + old, static_cast<std::size_t>(chunkSize_));
        } while (count < 0 && errno == EINTR);
        buffer_.resize(old + static_cast<std::size_t>(count > 0 ? count : 0));
        if (count <= 0) {
            atEof_ = true;
            if (buffer_.empty()) {
                return std::nullopt;
            }
            std::optional<std::string> line = decode(buffer_.size());
            buffer_.clear();
            searched_ = 0;
            return line;
        }
    }
    std::optional<std::string> line = decode(found);
    buffer_.erase(0, found + delimData_.size());
    searched_ = 0;
    return line;
}

}  // namespace zarvo
