#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zarvo/hls/BufferedReader.h"
#include "zarvo/hls/StringBufferedReader.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Lines of a document fetched in one piece over the shared URL session. Construction blocks
// the calling thread until the download has finished, so it must not run on that session's
// delegate queue. A failed download, an error status or a body that is not UTF-8 reads as
// the empty text: one empty line.
class URLBufferedReader : public BufferedReader {
public:
    explicit URLBufferedReader(const Url& url);

    void close() override;
    std::optional<std::string> readLine() override;

    // The reader over the downloaded text.
    StringBufferedReader& stringReader() { return *stringReader_; }

private:
    std::unique_ptr<StringBufferedReader> stringReader_;
};

}  // namespace zarvo
