#include "zarvo/hls/FileLineReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "zarvo/hls/Utf8Text.h"

namespace zarvo {

std::optional<FileLineReader> FileLineReader::open(const std::string& path, std::size_t blockSize) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    return FileLineReader(fd, blockSize > 0 ? blockSize : defaultBlockSize);
}

FileLineReader::FileLineReader(int fileDescriptor, std::size_t blockSize)
    : fileDescriptor_(fileDescriptor), buffer_(blockSize) {}

FileLineReader::FileLineReader(FileLineReader&& other) noexcept
    : fileDescriptor_(other.fileDescriptor_),
      buffer_(std::move(other.buffer_)),
      begin_(other.begin_),
      end_(other.end_),
      atEof_(other.atEof_),
      finished_(other.finished_) {
    other.fileDescriptor_ = -1;
    other.finished_ = true;
}

FileLineReader::~FileLineReader() {
    close();
}

void FileLineReader::close() {
    if (fileDescriptor_ >= 0) {
        ::close(fileDescriptor_);
        fileDescriptor_ = -1;
    }
    finished_ = true;
}

bool FileLineReader::fill() {
    // Only the unfinished line moves to the front; a line longer than the buffer grows it.
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        validEnd_ = std::max(validEnd_, begin_) - begin_;
        regionEnd_ = std::max(regionEnd_, begin_) - begin_;
        begin_ = 0;
    }
    if (end_ == buffer_.size()) {
        buffer_.resize(buffer_.size() * 2);
    }
    ssize_t count;
    do {
        count = ::read(fileDescriptor_, buffer_.data() + end_, buffer_.size() - end_);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        atEof_ = true;
        return false;
    }
    end_ += static_cast<std::size_t>(count);
    return true;
}

std::optional<std::string_view> FileLineReader::next() {
    if (finished_) {
        return std::nullopt;
    }
    std::size_t searched = begin_;
    const void* found;
    while ((found = std::memchr(buffer_.data() + searched, '\n', end_ - searched)) == nullptr) {
        const std::size_t checked = end_ - begin_;  // unread bytes without a "\n"
        if (atEof_ || !fill()) {
            break;
        }
        searched = begin_ + checked;
    }
    std::string_view line;
    if (found) {
        const auto* newline = static_cast<const char*>(found);
        line = std::string_view(buffer_.data() + begin_,
                                static_cast<std::size_t>(newline - (buffer_.data() + begin_)));
        const std::size_t lineEnd = begin_ + line.size();
        if (lineEnd >= regionEnd_) {
            // The complete lines read so far in one check: a "\n" is never part of a longer
            // sequence, so they are valid together exactly when each is valid alone.
            std::string_view unread(buffer_.data() + begin_, end_ - begin_);
            const std::size_t lastNewline = unread.rfind('\n');
            regionEnd_ = begin_ + lastNewline + 1;
            if (utf8::isValid(unread.substr(0, lastNewline))) {
                validEnd_ = regionEnd_;
            }
        }
        begin_ = lineEnd + 1;
        if (lineEnd < validEnd_) {
            return line;
        }
    } else {
        line = std::string_view(buffer_.data() + begin_, end_ - begin_);
        begin_ = end_;
        finished_ = true;
        if (line.empty()) {
            return std::nullopt;
        }
    }
    if (!utf8::isValid(line)) {
        finished_ = true;
        return std::nullopt;
    }
    return line;
}

}  // namespace zarvo
