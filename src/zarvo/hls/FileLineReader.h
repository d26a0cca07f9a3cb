#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zarvo {

// Lines of a UTF-8 file separated by "\n", read in large blocks and handed out as views into
// the block, so that a line costs neither an allocation nor a copy. The lines are those of
// FileBufferedReader: a "\r" before the "\n" stays in the line, a line that is not valid UTF-8
// ends the input, and so does a read error.
class FileLineReader {
public:
    static constexpr std::size_t defaultBlockSize = std::size_t{1} << 20;

    // Nothing when the file cannot be opened for reading.
    static std::optional<FileLineReader> open(const std::string& path,
                                              std::size_t blockSize = defaultBlockSize);
    ~FileLineReader();
    FileLineReader(FileLineReader&& other) noexcept;
    FileLineReader& operator=(FileLineReader&&) = delete;
    FileLineReader(const FileLineReader&) = delete;
    FileLineReader& operator=(const FileLineReader&) = delete;

    // The next line without its "\n", valid until the next call; nothing at the end of the
    // input, which stays the end.
    std::optional<std::string_view> next();
    // Releases the file; the input ends.
    void close();

private:
    FileLineReader(int fileDescriptor, std::size_t blockSize);
    // Reads more of the file after the unread bytes; false at the end of the file.
    bool fill();

    int fileDescriptor_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  // the first unread byte
    std::size_t end_ = 0;    // one past the last byte read
    // Complete lines are checked for valid UTF-8 a buffer at a time: those before validEnd_
    // passed, and those before regionEnd_ have had their check (when it failed, each line of
    // the region is checked alone).
    std::size_t validEnd_ = 0;
    std::size_t regionEnd_ = 0;
    bool atEof_ = false;
    bool finished_ = false;
};

}  // namespace zarvo
