#include "zarvo/media/loopback/PackageFileHandler.h"

#include <algorithm>
#include <cstdio>

#include "zarvo/media/loopback/LoopbackResponse.h"
#include "zarvo/media/loopback/PlaylistHandler.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

namespace {

constexpr std::size_t fileChunk = 256 * 1024;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

void PackageFileHandler::serve(LoopbackResponse& response, ResourceSession::Kind kind,
                               const Url& url,
                               const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    if (!session_.asset_->mayReadFile(url)) {
        response.status = 403;
        return;
    }
    auto file = std::make_shared<FilePtr>(std::fopen(url.decodedPath().c_str(), "rb"));
    if (!*file || std::fseek(file->get(), 0, SEEK_END) != 0) {
        response.status = 404;
        session_.recordFailure(makeStatusError(url, 404));
        return;
    }
    const long size = std::ftell(file->get());
    const std::int64_t offset = range ? range->offset : 0;
    if (size < 0 || offset > size) {
        response.status = 416;
        return;
    }
    const std::int64_t length = std::min<std::int64_t>(range ? range->length : size, size - offset);
    std::fseek(file->get(), static_cast<long>(offset), SEEK_SET);
    const double started = Scheduler::standard()->uptime();
    const auto facts = session_.playlists_->segmentFacts(url, range);
    const std::optional<double> mediaDuration =
        facts ? std::optional(facts->duration) : std::nullopt;
    response.status = 200;
    // The gate counts the transfer as under way until the pipeline has read the body.
    response.keptUntilHangUp = true;
    response.setProducer(
        length, ResourceSession::contentTypeFor(url),
        [file, pass = session_.gate_->enter(facts && facts->last), length](LoopbackBodySink& sink) {
            Data buffer(static_cast<std::size_t>(std::min<std::int64_t>(length, fileChunk)), '\0');
            for (std::int64_t left = length; left > 0;) {
                const auto want = static_cast<std::size_t>(
                    std::min<std::int64_t>(left, static_cast<std::int64_t>(buffer.size())));
                const std::size_t got = std::fread(buffer.data(), 1, want, file->get());
                if (got == 0 || !pass->write([&] { return sink.write(buffer.data(), got); })) {
                    return false;
                }
                left -= static_cast<std::int64_t>(got);
            }
            return true;
        },
        [weakSession = session_.weak_from_this(), kind, url, length, started,
         mediaDuration](bool complete) {
            if (auto session = weakSession.lock()) {
                const ResourceSession::Transfer transfer{kind,
                                                         url,
                                                         complete ? length : 0,
                                                         Scheduler::standard()->uptime() - started,
                                                         mediaDuration,
                                                         complete};
                session->notify([transfer](ResourceSession::Observer& observer) {
                    observer.transferred(transfer);
                });
            }
        });
}

}  // namespace zarvo
