#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zarvo/hls/BufferedReader.h"
#include "zarvo/hls/StreamReader.h"

namespace zarvo {

// Lines of a UTF-8 file separated by "\n" (a "\r" before it stays in the line). The file
// must exist and be readable: a path that cannot be opened is a fatal error.
class FileBufferedReader : public BufferedReader {
public:
    explicit FileBufferedReader(std::string path);

    void close() override;
    std::optional<std::string> readLine() override;

    const std::string& fileName() const { return fileName_; }

private:
    std::string fileName_;
    std::unique_ptr<StreamReader> streamReader_;
};

}  // namespace zarvo
