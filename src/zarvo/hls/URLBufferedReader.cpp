#include "zarvo/hls/URLBufferedReader.h"

#include "zarvo/hls/Utf8Text.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

URLBufferedReader::URLBufferedReader(const Url& url)
    : stringReader_(std::make_unique<StringBufferedReader>(std::string())) {
    if (url.isFileUrl()) {
        // Local documents are read directly, as the session would load them.
        auto text = DataFile::read(url.decodedPath(), ResponseLimits::playlist);
        if (text && utf8::isValid(*text)) {
            stringReader_ = std::make_unique<StringBufferedReader>(std::move(*text));
        }
        return;
    }
    // The completion fills a shared slot rather than the reader, so it never touches a
    // reader that is gone.
    struct Download {
        DispatchSemaphore done{0};
        std::optional<std::string> text;
    };
    auto download = std::make_shared<Download>();
    UrlRequest request(url);
    request.maximumBodyLength = ResponseLimits::playlist;
    auto task = UrlSession::shared()->dataTask(
        std::move(request),
        [weak = std::weak_ptr<Download>(download)](
            std::optional<Data> data, std::optional<HttpUrlResponse>, std::optional<Error>) {
            auto slot = weak.lock();
            if (!slot) {
                return;
            }
            if (data) {
                slot->text = utf8::isValid(*data) ? std::move(*data) : std::string();
            }
            slot->done.signal();
        });
    task->resume();
    download->done.wait();
    if (download->text) {
        stringReader_ = std::make_unique<StringBufferedReader>(std::move(*download->text));
    }
}

void URLBufferedReader::close() {
    stringReader_->close();
}

std::optional<std::string> URLBufferedReader::readLine() {
    return stringReader_->readLine();
}

}  // namespace zarvo
