#include "zarvo/media/loopback/ResourceSession.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

#include <httplib.h>

#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/loopback/ResourceServer.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

namespace {

constexpr const char* playlistType = "application/vnd.apple.mpegurl";
constexpr std::size_t fileChunk = 256 * 1024;
// Segment bytes go to the pipeline in blocks of up to this size: one send per block instead
// of one per piece of 16 KiB that curl hands out saves most of the system calls.
constexpr std::size_t sendBlock = 512 * 1024;
// Segment lengths remembered for the access log; a long live session starts over past this.
constexpr std::size_t maxRememberedSegments = 4096;

// The last path component, kept to safe characters so that the served URL still ends in the
// resource's own name and extension.
std::string safeName(const Url& url, ResourceSession::Kind kind) {
    if (kind == ResourceSession::Kind::key) {
        return "key";
    }
    std::string name;
    for (char c : url.lastPathComponent()) {
        const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
        name.push_back(safe ? c : '_');
        if (name.size() >= 64) {
            break;
        }
    }
    return name.empty() ? "resource" : name;
}

std::string contentTypeFor(const Url& url) {
    const std::string extension = url.pathExtension();
    if (extension == "ts") {
        return "video/mp2t";
    }
    if (extension == "aac") {
        return "audio/aac";
    }
    if (extension == "vtt" || extension == "webvtt") {
        return "text/vtt";
    }
    if (extension == "mp4" || extension == "m4s" || extension == "m4v") {
        return "video/mp4";
    }
    if (extension == "m4a") {
        return "audio/mp4";
    }
    return "application/octet-stream";
}

ResourceSession::Kind kindOf(HlsPlaylistRewriter::ResourceKind kind) {
    using From = HlsPlaylistRewriter::ResourceKind;
    switch (kind) {
        case From::variantPlaylist:
            return ResourceSession::Kind::variantPlaylist;
        case From::renditionPlaylist:
            return ResourceSession::Kind::renditionPlaylist;
        case From::segment:
            return ResourceSession::Kind::segment;
        case From::initializationSection:
            return ResourceSession::Kind::initializationSection;
        case From::key:
            return ResourceSession::Kind::key;
        case From::other:
            break;
    }
    return ResourceSession::Kind::other;
}

std::string rangeKey(const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    return range ? url.absoluteString() + "~" + std::to_string(range->offset)
                 : url.absoluteString();
}

// A file read in pieces for one answer.
struct FileReader {
    std::FILE* file = nullptr;
    ~FileReader() {
        if (file != nullptr) {
            std::fclose(file);
        }
    }
};

}  // namespace

// One content key being loaded; requests for the same key wait for it together.
struct ResourceSession::KeyWait {
    std::shared_ptr<AssetResourceLoadingRequest> request;  // for keys the delegate loads
    bool accepted = false;
    bool done = false;
    std::optional<Data> key;
    std::optional<Error> error;
};

std::shared_ptr<ResourceSession> ResourceSession::open(std::shared_ptr<UrlAsset> asset,
                                                       std::shared_ptr<AssetLoader> loader,
                                                       std::weak_ptr<Observer> observer,
                                                       std::shared_ptr<DispatchQueue> queue) {
    auto session = std::make_shared<ResourceSession>(Token{}, std::move(asset), std::move(loader),
                                                     std::move(observer), std::move(queue));
    auto& server = ResourceServer::shared();
    session->token_ = ResourceServer::newToken();
    session->base_ = server.baseUrl() + "/" + session->token_;
    session->entryUrl_ = session->urlFor(Kind::master, session->asset_->playlistUrl());
    // Only now, with its addresses set, may requests reach it.
    server.add(session->token_, session);
    return session;
}

ResourceSession::ResourceSession(Token, std::shared_ptr<UrlAsset> asset,
                                 std::shared_ptr<AssetLoader> loader,
                                 std::weak_ptr<Observer> observer,
                                 std::shared_ptr<DispatchQueue> queue)
    : asset_(std::move(asset)),
      loader_(std::move(loader)),
      observer_(std::move(observer)),
      observerQueue_(queue ? std::move(queue) : DispatchQueue::main()),
      connections_(std::make_shared<DirectUrlConnections>()),
      gate_(std::make_shared<TransferGate>(Scheduler::standard())) {}

ResourceSession::~ResourceSession() {
    close();
}

std::string ResourceSession::urlFor(
    Kind kind, const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) const {
    const std::string key = static_cast<char>(kind) + rangeKey(url, range);
    std::size_t number = 0;
    {
        std::lock_guard lock(referencesMutex_);
        auto [found, added] = referenceNumbers_.try_emplace(key, references_.size());
        if (added) {
            references_.push_back(Reference{kind, url, range});
        }
        number = found->second;
    }
    return base_ + "/" + std::to_string(number) + "/" + safeName(url, kind);
}

void ResourceSession::close() {
    std::set<std::shared_ptr<DirectUrlStream>> streams;
    std::map<std::string, std::shared_ptr<KeyWait>> waits;
    {
        std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        streams.swap(streams_);
        waits = keyWaits_;
    }
    changed_.notify_all();
    gate_->close();
    if (!token_.empty()) {
        ResourceServer::shared().remove(token_);
    }
    connections_->close();
    for (const auto& stream : streams) {
        stream->cancel();
    }
    for (const auto& [uri, wait] : waits) {
        bool accepted = false;
        {
            std::lock_guard lock(mutex_);
            accepted = wait->accepted;
        }
        if (wait->request && wait->request->cancel() && accepted) {
            asset_->resourceLoader()->notifyCancelled(wait->request);
        }
    }
}

bool ResourceSession::isClosed() const {
    std::lock_guard lock(mutex_);
    return closed_;
}

void ResourceSession::notify(std::function<void(Observer&)> call) {
    observerQueue_->async([observer = observer_, call = std::move(call)] {
        if (auto strong = observer.lock()) {
            call(*strong);
        }
    });
}

void ResourceSession::recordFailure(const Error& error) {
    std::lock_guard lock(mutex_);
    lastFailure_ = error;
}

void ResourceSession::failPlayback(const Error& error) {
    recordFailure(error);
    notify([error](Observer& observer) { observer.failed(error); });
}

std::optional<Error> ResourceSession::lastFailure() const {
    std::lock_guard lock(mutex_);
    return lastFailure_;
}

void ResourceSession::track(const std::shared_ptr<DirectUrlStream>& stream) {
    bool closed = false;
    {
        std::lock_guard lock(mutex_);
        closed = closed_;
        if (!closed) {
            streams_.insert(stream);
        }
    }
    if (closed) {
        stream->cancel();
    }
}

void ResourceSession::untrack(const std::shared_ptr<DirectUrlStream>& stream) {
    std::lock_guard lock(mutex_);
    streams_.erase(stream);
}

void ResourceSession::handle(const httplib::Request&, httplib::Response& response,
                             std::string_view reference) {
    std::optional<Reference> found;
    std::size_t number = 0;
    const char* end = reference.data() + reference.size();
    const auto [at, failure] = std::from_chars(reference.data(), end, number);
    if (failure == std::errc() && at == end) {
        std::lock_guard lock(referencesMutex_);
        if (number < references_.size()) {
            found = references_[number];
        }
    }
    if (!found || isClosed()) {
        response.status = 404;
        return;
    }
    serve(*found, response);
}

void ResourceSession::serve(const Reference& reference, httplib::Response& response) {
    const Kind kind = reference.kind;
    const Url& url = reference.url;
    const auto& range = reference.range;
    switch (kind) {
        case Kind::master:
        case Kind::variantPlaylist:
        case Kind::renditionPlaylist:
            servePlaylist(response, kind, url);
            return;
        case Kind::key:
            serveKey(response, url);
            return;
        case Kind::segment:
        case Kind::initializationSection:
        case Kind::other:
            if (url.isHttp()) {
                serveStream(response, kind, url, range);
            } else if (url.isFileUrl()) {
                serveFile(response, kind, url, range);
            } else {
                response.status = 404;
            }
            return;
    }
    response.status = 404;
}

std::optional<AssetLoader::Fetched> ResourceSession::awaitFetch(
    const std::function<void(AssetLoader::FetchDone)>& start) {
    auto result = std::make_shared<std::optional<AssetLoader::Fetched>>();
    start([weakSelf = weak_from_this(), result](AssetLoader::Fetched fetched) {
        if (auto self = weakSelf.lock()) {
            {
                std::lock_guard lock(self->mutex_);
                *result = std::move(fetched);
            }
            self->changed_.notify_all();
        }
    });
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return result->has_value() || closed_; });
    return std::move(*result);
}

void ResourceSession::servePlaylist(httplib::Response& response, Kind kind, const Url& url) {
    auto result = awaitFetch(
        [&](AssetLoader::FetchDone done) { loader_->fetchPlaylist(url, std::move(done)); });
    if (!result) {
        response.status = 404;
        return;
    }
    AssetLoader::Fetched fetched = std::move(*result);

    // A failure that asking again cannot mend ends the playback at once, instead of after the
    // pipeline's own retries; the master's failure is the asset's.
    auto refuse = [&](const Error& error, int status, bool hopeless) {
        response.status = status;
        if (kind == Kind::master) {
            loader_->masterFailed(error);
        }
        hopeless ? failPlayback(error) : recordFailure(error);
    };
    if (fetched.error) {
        refuse(makeTransportError(url, *fetched.error), 502,
               isUrlError(*fetched.error, UrlError::dataLengthExceedsMaximum) ||
                   isUrlError(*fetched.error, UrlError::unsupportedUrl));
        return;
    }
    if (fetched.statusCode < 200 || fetched.statusCode >= 300) {
        refuse(makeStatusError(url, fetched.statusCode),
               fetched.statusCode >= 400 ? fetched.statusCode : 502, false);
        return;
    }
    if (!HlsPlaylistRewriter::looksLikePlaylist(fetched.body)) {
        refuse(makeMediaError(MediaError::invalidPlaylist,
                              url.absoluteString() + " is not an HLS playlist."),
               502, true);
        return;
    }
    auto info = HlsPlaylistRewriter::rewrite(
        fetched.body, url, [this](const HlsPlaylistRewriter::Reference& reference) {
            const Kind kind = kindOf(reference.kind);
            if (kind != Kind::key && !reference.url.isHttp() && !reference.url.isFileUrl()) {
                return std::optional<std::string>();
            }
            return std::optional<std::string>(urlFor(kind, reference.url, reference.byteRange));
        });
    response.status = 200;
    response.set_header("Cache-Control", "no-cache");
    response.set_content(info.text, playlistType);
    info.text.clear();
    if (kind == Kind::master && info.isMasterPlaylist) {
        loader_->masterRead(info);
    }
    PlaylistServed served{kind, url, std::move(info)};
    rememberSegments(served);
    notify([served = std::move(served)](Observer& observer) { observer.playlistServed(served); });
}

void ResourceSession::rememberSegments(const PlaylistServed& served) {
    std::lock_guard lock(mutex_);
    if (served.kind == Kind::master) {
        for (const auto& variant : served.info.variants) {
            variantBandwidths_[variant.url.absoluteString()] = variant.bandwidth;
        }
        return;
    }
    if (segments_.size() > maxRememberedSegments) {
        segments_.clear();
    }
    std::optional<std::int64_t> bandwidth;
    if (auto found = variantBandwidths_.find(served.url.absoluteString());
        found != variantBandwidths_.end()) {
        bandwidth = found->second;
    }
    for (const auto& segment : served.info.segments) {
        if (segment.url) {
            segments_[rangeKey(*segment.url, segment.byteRange)] = {segment.duration, bandwidth};
        }
    }
}

std::optional<ResourceSession::SegmentFacts> ResourceSession::segmentFacts(
    const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto found = segments_.find(key);
    if (found == segments_.end()) {
        return std::nullopt;
    }
    return found->second;
}

namespace {

// The state of one answer streamed from the origin to the pipeline. The server thread that
// answers runs the transfer itself and writes what curl receives to the pipeline.
struct StreamAnswer {
    std::shared_ptr<DirectUrlStream> stream;
    std::shared_ptr<TransferGate> gate;
    TransferGate::Ticket ticket = 0;
    std::int64_t skip = 0;        // bytes of the body before the range (an origin that ignored it)
    std::int64_t remaining = -1;  // bytes still to send; -1: to the end
    std::int64_t sent = 0;
    std::int64_t limit = 0;  // a body longer than this is broken (see ResponseLimits::segment)
    double started = 0;
    bool passed = false;
    bool failed = false;
    bool tooLong = false;
    bool released = false;

    // Runs the rest of the transfer into `sink`; false when it broke off (the origin, the
    // pipeline hanging up, or a body shorter than announced).
    bool pass(httplib::DataSink& sink) {
        if (std::exchange(passed, true)) {
            // Asked again: the body ended before the length announced.
            failed = true;
            return false;
        }
        const auto error = stream->receive(
            [&](const char* data, std::size_t length) {
                if (skip > 0) {
                    const auto dropped = std::min(static_cast<std::size_t>(skip), length);
                    data += dropped;
                    length -= dropped;
                    skip -= static_cast<std::int64_t>(dropped);
                }
                if (remaining >= 0) {
                    length = std::min(length, static_cast<std::size_t>(remaining));
                }
                if (sent + static_cast<std::int64_t>(length) > limit) {
                    tooLong = failed = true;
                    return false;
                }
                if (length > 0 && !gate->write(ticket, [&] { return sink.write(data, length); })) {
                    failed = true;
                    return false;
                }
                sent += static_cast<std::int64_t>(length);
                if (remaining > 0) {
                    remaining -= static_cast<std::int64_t>(length);
                }
                return remaining != 0;
            },
            sendBlock);
        failed = failed || error.has_value() || remaining > 0;
        return !failed;
    }
};

}  // namespace

void ResourceSession::serveStream(httplib::Response& response, Kind kind, const Url& url,
                                  const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    UrlRequest request(url);
    if (range) {
        request.setValue(range->header(), "Range");
    }
    auto answer = std::make_shared<StreamAnswer>();
    answer->started = Scheduler::standard()->uptime();
    answer->gate = gate_;
    answer->ticket = gate_->enter();
    auto started =
        DirectUrlStream::start(request, loader_->session()->configuration(), connections_);
    auto head = [&]() -> std::variant<HttpUrlResponse, Error> {
        if (auto* error = std::get_if<Error>(&started)) {
            return std::move(*error);
        }
        answer->stream = std::get<std::shared_ptr<DirectUrlStream>>(std::move(started));
        track(answer->stream);
        auto waited = answer->stream->waitForResponse();
        if (std::holds_alternative<Error>(waited)) {
            untrack(answer->stream);
        }
        return waited;
    }();
    if (auto* error = std::get_if<Error>(&head)) {
        if (!isClosed()) {
            const Error failure = makeTransportError(url, *error);
            recordFailure(failure);
        }
        response.status = 502;
        return;
    }
    const auto& origin = std::get<HttpUrlResponse>(head);
    // A redirect that was not followed (no Location, or too many) is no answer either.
    if (origin.statusCode < 200 || origin.statusCode >= 300) {
        answer->stream->cancel();
        untrack(answer->stream);
        const Error failure = makeStatusError(url, origin.statusCode);
        recordFailure(failure);
        response.status = origin.statusCode >= 400 ? origin.statusCode : 502;
        return;
    }
    std::int64_t length = origin.expectedContentLength;
    if (range) {
        answer->skip = range->skippedIn(origin.statusCode);
        length = range->length;
    }
    answer->remaining = length;
    const std::string type = origin.mimeType().value_or(contentTypeFor(url));
    const auto facts = segmentFacts(rangeKey(url, range));
    const std::optional<double> mediaDuration =
        facts ? std::optional(facts->duration) : std::nullopt;
    answer->limit =
        static_cast<std::int64_t>(facts ? ResponseLimits::segment(facts->duration, facts->bandwidth)
                                        : ResponseLimits::segment(0));
    // A body without end (or far longer than any stream's) would pile up in the pipeline:
    // the playback fails instead.
    const Error tooLong = makeTransportError(
        url, makeUrlError(UrlError::dataLengthExceedsMaximum, url.absoluteString()));
    if (length > answer->limit) {
        answer->stream->cancel();
        untrack(answer->stream);
        failPlayback(tooLong);
        response.status = 502;
        return;
    }

    auto release = [weakSelf = weak_from_this(), answer, kind, url, mediaDuration,
                    tooLong](bool success) {
        if (std::exchange(answer->released, true)) {
            return;
        }
        answer->stream->cancel();
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        self->untrack(answer->stream);
        if (answer->tooLong) {
            self->failPlayback(tooLong);
        }
        Transfer transfer{kind,          url,
                          answer->sent,  Scheduler::standard()->uptime() - answer->started,
                          mediaDuration, success && !answer->failed};
        self->notify([transfer](Observer& observer) { observer.transferred(transfer); });
    };
    if (length >= 0) {
        response.set_content_provider(
            static_cast<std::size_t>(length), type,
            [answer](std::size_t, std::size_t, httplib::DataSink& sink) {
                return answer->pass(sink);
            },
            std::move(release));
    } else {
        response.set_chunked_content_provider(
            type,
            [answer](std::size_t, httplib::DataSink& sink) {
                if (!answer->pass(sink)) {
                    return false;
                }
                sink.done();
                return true;
            },
            std::move(release));
    }
    response.status = 200;
}

void ResourceSession::serveFile(httplib::Response& response, Kind kind, const Url& url,
                                const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    if (!asset_->mayReadFile(url)) {
        response.status = 403;
        return;
    }
    auto reader = std::make_shared<FileReader>();
    reader->file = std::fopen(url.decodedPath().c_str(), "rb");
    if (reader->file == nullptr || std::fseek(reader->file, 0, SEEK_END) != 0) {
        response.status = 404;
        const Error failure = makeStatusError(url, 404);
        recordFailure(failure);
        return;
    }
    const long size = std::ftell(reader->file);
    std::int64_t offset = range ? range->offset : 0;
    std::int64_t length = range ? range->length : size;
    if (size < 0 || offset > size) {
        response.status = 416;
        return;
    }
    length = std::min<std::int64_t>(length, size - offset);
    std::fseek(reader->file, static_cast<long>(offset), SEEK_SET);
    const double started = Scheduler::standard()->uptime();
    const auto facts = segmentFacts(rangeKey(url, range));
    const std::optional<double> mediaDuration =
        facts ? std::optional(facts->duration) : std::nullopt;
    response.status = 200;
    response.set_content_provider(
        static_cast<std::size_t>(length), contentTypeFor(url),
        [reader, gate = gate_, ticket = gate_->enter()](std::size_t, std::size_t limit,
                                                        httplib::DataSink& sink) {
            Data buffer(std::min(limit, fileChunk), '\0');
            const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), reader->file);
            return got > 0 && gate->write(ticket, [&] { return sink.write(buffer.data(), got); });
        },
        [weakSelf = weak_from_this(), kind, url, length, started, mediaDuration](bool success) {
            if (auto self = weakSelf.lock()) {
                Transfer transfer{kind,
                                  url,
                                  success ? length : 0,
                                  Scheduler::standard()->uptime() - started,
                                  mediaDuration,
                                  success};
                self->notify([transfer](Observer& observer) { observer.transferred(transfer); });
            }
        });
}

void ResourceSession::serveKey(httplib::Response& response, const Url& url) {
    std::optional<Error> error;
    std::optional<Data> key;
    {
        std::lock_guard lock(mutex_);
        auto known = keys_.find(url.absoluteString());
        if (known != keys_.end()) {
            key = known->second;
        }
    }
    if (!key) {
        key = url.isHttp() || url.isFileUrl() ? fetchKeyOverNetwork(url, error)
                                              : loadKeyThroughDelegate(url, error);
    }
    if (key) {
        response.status = 200;
        response.set_content(*key, "application/octet-stream");
        return;
    }
    response.status = isClosed() ? 404 : 403;
    if (error) {
        response.set_content(error->localizedDescription(), "text/plain");
    }
}

std::optional<Data> ResourceSession::fetchKeyOverNetwork(const Url& url,
                                                         std::optional<Error>& error) {
    auto result =
        awaitFetch([&](AssetLoader::FetchDone done) { loader_->fetch(url, std::move(done)); });
    if (!result) {
        return std::nullopt;
    }
    const AssetLoader::Fetched fetched = std::move(*result);
    if (fetched.error || fetched.statusCode < 200 || fetched.statusCode >= 300) {
        error = fetched.error ? makeTransportError(url, *fetched.error)
                              : makeStatusError(url, fetched.statusCode);
        recordFailure(*error);
        return std::nullopt;
    }
    return fetched.body;
}

std::optional<Data> ResourceSession::loadKeyThroughDelegate(const Url& url,
                                                            std::optional<Error>& error) {
    std::shared_ptr<KeyWait> wait;
    bool first = false;
    {
        std::lock_guard lock(mutex_);
        auto& slot = keyWaits_[url.absoluteString()];
        if (!slot) {
            slot = std::make_shared<KeyWait>();
            first = true;
        }
        wait = slot;
    }
    if (first) {
        auto settle = [weakSelf = weak_from_this(), wait, url](std::optional<Data> key,
                                                               std::optional<Error> failure) {
            auto self = weakSelf.lock();
            if (!self) {
                return;
            }
            {
                std::lock_guard lock(self->mutex_);
                wait->done = true;
                wait->key = std::move(key);
                wait->error = failure;
                self->keyWaits_.erase(url.absoluteString());
                if (wait->key) {
                    self->keys_[url.absoluteString()] = *wait->key;
                }
            }
            self->changed_.notify_all();
            if (failure) {
                self->failPlayback(*failure);
            }
        };
        wait->request = std::make_shared<AssetResourceLoadingRequest>(
            UrlRequest(url), true, true,
            [settle, url](const AssetResourceLoadingRequest::Outcome& outcome) {
                if (outcome.error) {
                    settle(std::nullopt, makeMediaError(MediaError::resourceLoadingFailed,
                                                        "The resource loader failed to load " +
                                                            url.absoluteString() + ": " +
                                                            outcome.error->localizedDescription(),
                                                        outcome.error));
                    return;
                }
                const bool persistent =
                    outcome.contentType ==
                    AssetResourceLoadingContentInformationRequest::persistentContentKeyType;
                auto key = persistent ? ContentKeyRequest::contentKeyFromPersistentKey(outcome.data)
                                      : ContentKeyRequest::contentKey(outcome.data);
                if (!key && !persistent) {
                    key = ContentKeyRequest::contentKeyFromPersistentKey(outcome.data);
                }
                if (!key) {
                    settle(std::nullopt,
                           makeMediaError(MediaError::invalidContentKey,
                                          "The answer to " + url.absoluteString() +
                                              " is not a content key (" +
                                              std::to_string(outcome.data.size()) + " bytes)."));
                    return;
                }
                settle(std::move(key), std::nullopt);
            });
        asset_->resourceLoader()->offer(
            wait->request, false, [weakSelf = weak_from_this(), wait, settle, url](bool accepted) {
                if (accepted) {
                    if (auto self = weakSelf.lock()) {
                        std::lock_guard lock(self->mutex_);
                        wait->accepted = true;
                    }
                    return;
                }
                if (wait->request->cancel()) {
                    settle(std::nullopt, makeMediaError(MediaError::resourceLoadingFailed,
                                                        "The resource loader declined " +
                                                            url.absoluteString() + "."));
                }
            });
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return wait->done || closed_; });
    if (!wait->done) {
        return std::nullopt;
    }
    error = wait->error;
    return wait->key;
}

}  // namespace zarvo
