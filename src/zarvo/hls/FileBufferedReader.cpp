#include "zarvo/hls/FileBufferedReader.h"

#include "zarvo/platform/FatalError.h"

namespace zarvo {

FileBufferedReader::FileBufferedReader(std::string path)
    : fileName_(std::move(path)),
      streamReader_(StreamReader::make(fileName_, "\n", StreamReader::Encoding::utf8, 4096)) {
    if (!streamReader_) {
        fatalError("FileBufferedReader: cannot open file " + fileName_);
    }
}

void FileBufferedReader::close() {
    streamReader_->close();
}

std::optional<std::string> FileBufferedReader::readLine() {
    return streamReader_->nextLine();
}

}  // namespace zarvo
