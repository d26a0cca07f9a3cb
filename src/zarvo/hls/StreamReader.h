#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zarvo {

// Reads a file in chunks and returns it one delimited line at a time.
class StreamReader {
public:
    enum class Encoding { utf8 };

    // Nothing when the file cannot be opened for reading, the delimiter cannot be encoded
    // or the chunk size is not positive.
    static std::unique_ptr<StreamReader> make(const std::string& path,
                                              const std::string& delimiter = "\n",
                                              Encoding encoding = Encoding::utf8,
                                              std::int64_t chunkSize = 4096);
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    // The next line without its delimiter; nothing at the end of the file or when the line
    // is not valid text. Reading a closed reader is a fatal error.
    std::optional<std::string> nextLine();
    void close();

    Encoding encoding() const { return encoding_; }
    std::int64_t chunkSize() const { return chunkSize_; }
    bool atEof() const { return atEof_; }

private:
    StreamReader(int fileDescriptor, std::string delimiter, Encoding encoding,
                 std::int64_t chunkSize);
    std::optional<std::string> decode(std::size_t length) const;

    Encoding encoding_;
    std::int64_t chunkSize_;
    std::optional<int> fileHandle_;
    std::string buffer_;
    std::string delimData_;
    bool atEof_ = false;
    std::size_t searched_ = 0;  // bytes of buffer_ known not to start a delimiter
};

}  // namespace zarvo
