#include "zarvo/media/loopback/ResourceSession.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "zarvo/media/loopback/KeyHandler.h"
#include "zarvo/media/loopback/LoopbackResponse.h"
#include "zarvo/media/loopback/PackageFileHandler.h"
#include "zarvo/media/loopback/PlaylistHandler.h"
#include "zarvo/media/loopback/ResourceServer.h"
#include "zarvo/media/loopback/SegmentStreamHandler.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

namespace {

// Segment references a session keeps: many times what any playlist names at once.
constexpr std::size_t maxSegmentReferences = 16384;

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

}  // namespace

std::shared_ptr<ResourceSession> ResourceSession::open(std::shared_ptr<UrlAsset> asset,
                                                       std::shared_ptr<AssetLoader> loader,
                                                       std::weak_ptr<Observer> observer,
                                                       std::shared_ptr<DispatchQueue> queue,
                                                       MasterServing masterServing) {
    auto session = std::make_shared<ResourceSession>(Token{}, std::move(asset), std::move(loader),
                                                     std::move(observer), std::move(queue));
    session->masterServing_ = std::move(masterServing);
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
      gate_(std::make_shared<TransferGate>(Scheduler::standard())),
      playlists_(std::make_unique<PlaylistHandler>(*this)),
      streams_(std::make_unique<SegmentStreamHandler>(*this)),
      files_(std::make_unique<PackageFileHandler>(*this)),
      keys_(std::make_unique<KeyHandler>(*this)) {}

ResourceSession::~ResourceSession() {
    close();
    if (!token_.empty()) {
        ResourceServer::shared().remove(token_);
    }
}

std::string ResourceSession::resourceKey(
    const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    return range ? url.absoluteString() + "~" + std::to_string(range->offset)
                 : url.absoluteString();
}

std::string ResourceSession::urlFor(
    Kind kind, const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) const {
    const std::string key = static_cast<char>(kind) + resourceKey(url, range);
    std::size_t number = 0;
    {
        std::lock_guard lock(referencesMutex_);
        auto [found, added] = referenceNumbers_.try_emplace(key, nextReference_);
        number = found->second;
        if (added) {
            references_.emplace(nextReference_++, Reference{kind, url, range});
            if (kind == Kind::segment || kind == Kind::initializationSection ||
                kind == Kind::other) {
                segmentReferences_.push_back(found);
            }
            if (segmentReferences_.size() > maxSegmentReferences) {
                references_.erase(segmentReferences_.front()->second);
                referenceNumbers_.erase(segmentReferences_.front());
                segmentReferences_.pop_front();
            }
        }
    }
    return base_ + "/" + std::to_string(number) + "/" + safeName(url, kind);
}

std::string ResourceSession::contentTypeFor(const Url& url) {
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

void ResourceSession::close() {
    std::set<std::shared_ptr<DirectUrlStream>> streams;
    {
        std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        lastAnswerEnded_ = std::chrono::steady_clock::now();
        streams.swap(inFlight_);
    }
    changed_.notify_all();
    gate_->close();
    // The token stays listed until the session goes: a request that the demuxer sent just
    // before this still reaches it, gets its 404 and is waited for by awaitAnswersRead().
    connections_->close();
    for (const auto& stream : streams) {
        stream->cancel();
    }
    keys_->close();
}

bool ResourceSession::awaitAnswersRead(std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + limit;
    std::unique_lock lock(mutex_);
    for (;;) {
        if (!changed_.wait_until(lock, deadline, [this] { return answering_ == 0; })) {
            return false;
        }
        const auto quietUntil = lastAnswerEnded_ + answersSettleTime;
        if (const auto now = Clock::now(); now >= quietUntil || now >= deadline) {
            return true;
        }
        changed_.wait_until(lock, std::min(quietUntil, deadline));
    }
}

void ResourceSession::answerBegan() {
    std::lock_guard lock(mutex_);
    ++answering_;
}

void ResourceSession::answerEnded() {
    {
        std::lock_guard lock(mutex_);
        --answering_;
        lastAnswerEnded_ = std::chrono::steady_clock::now();
    }
    changed_.notify_all();
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
            inFlight_.insert(stream);
        }
    }
    if (closed) {
        stream->cancel();
    }
}

void ResourceSession::untrack(const std::shared_ptr<DirectUrlStream>& stream) {
    std::lock_guard lock(mutex_);
    inFlight_.erase(stream);
}

void ResourceSession::handle(LoopbackResponse& response, std::string_view reference) {
    std::optional<Reference> found;
    std::size_t number = 0;
    const char* end = reference.data() + reference.size();
    const auto [at, failure] = std::from_chars(reference.data(), end, number);
    if (failure == std::errc() && at == end) {
        std::lock_guard lock(referencesMutex_);
        if (auto known = references_.find(number); known != references_.end()) {
            found = known->second;
        }
    }
    response.status = 404;
    if (!found) {
        return;
    }
    switch (found->kind) {
        case Kind::master:
        case Kind::variantPlaylist:
        case Kind::renditionPlaylist:
        case Kind::key:
            response.readBeforeDone = true;
            break;
        default:
            break;
    }
    if (isClosed()) {
        return;
    }
    const Url& url = found->url;
    switch (found->kind) {
        case Kind::master:
        case Kind::variantPlaylist:
        case Kind::renditionPlaylist:
            playlists_->serve(response, found->kind, url);
            return;
        case Kind::key:
            keys_->serve(response, url);
            return;
        case Kind::segment:
        case Kind::initializationSection:
        case Kind::other:
            if (url.isHttp()) {
                streams_->serve(response, found->kind, url, found->range);
            } else if (url.isFileUrl()) {
                files_->serve(response, found->kind, url, found->range);
            }
            return;
    }
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
    if (!waitUntil([&] { return result->has_value(); })) {
        return std::nullopt;
    }
    return std::move(*result);
}

bool ResourceSession::waitUntil(const std::function<bool()>& done) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return done() || closed_; });
    return done();
}

}  // namespace zarvo
