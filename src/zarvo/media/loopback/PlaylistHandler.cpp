#include "zarvo/media/loopback/PlaylistHandler.h"

#include "zarvo/media/loopback/LoopbackResponse.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/UrlError.h"

namespace zarvo {

namespace {

constexpr const char* playlistType = "application/vnd.apple.mpegurl";
// Segment lengths remembered for the access log; a long live session starts over past this.
constexpr std::size_t maxRememberedSegments = 4096;

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

}  // namespace

void PlaylistHandler::serve(LoopbackResponse& response, ResourceSession::Kind kind,
                            const Url& url) {
    using Kind = ResourceSession::Kind;
    const auto& loader = session_.loader_;
    auto result = session_.awaitFetch(
        [&](AssetLoader::FetchDone done) { loader->fetchPlaylist(url, std::move(done)); });
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
            loader->masterFailed(error);
        }
        hopeless ? session_.failPlayback(error) : session_.recordFailure(error);
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
            return std::optional<std::string>(
                session_.urlFor(kind, reference.url, reference.byteRange));
        });
    response.status = 200;
    response.setField("Cache-Control", "no-cache");
    response.setContent(std::move(info.text), playlistType);
    info.text.clear();
    if (kind == Kind::master && info.isMasterPlaylist) {
        loader->masterRead(info);
        if (session_.masterServing_) {
            session_.masterServing_(info);
        }
    }
    ResourceSession::PlaylistServed served{kind, url, std::move(info)};
    remember(served);
    session_.notify([served = std::move(served)](ResourceSession::Observer& observer) {
        observer.playlistServed(served);
    });
}

void PlaylistHandler::remember(const ResourceSession::PlaylistServed& served) {
    std::lock_guard lock(mutex_);
    if (served.kind == ResourceSession::Kind::master) {
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
    const auto& segments = served.info.segments;
    for (const auto& segment : segments) {
        if (segment.url) {
            const bool last = served.info.hasEndList && &segment == &segments.back();
            segments_[ResourceSession::resourceKey(*segment.url, segment.byteRange)] = {
                segment.duration, bandwidth, last};
        }
    }
}

std::optional<PlaylistHandler::SegmentFacts> PlaylistHandler::segmentFacts(
    const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) const {
    std::lock_guard lock(mutex_);
    auto found = segments_.find(ResourceSession::resourceKey(url, range));
    if (found == segments_.end()) {
        return std::nullopt;
    }
    return found->second;
}

}  // namespace zarvo
