#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "zarvo/media/loopback/ResourceSession.h"

namespace zarvo {

// Serves a session's playlists: fetched through the asset loader (the master may come from what
// it read ahead), checked to be HLS, and rewritten so that every URI they name is a reference of
// the session. Remembers what they say of each segment, for the transfers the access log counts
// and for the bound on a segment's body.
class PlaylistHandler {
public:
    struct SegmentFacts {
        double duration = 0;                    // its EXTINF
        std::optional<std::int64_t> bandwidth;  // of its variant, when the master names it
        bool last = false;  // the last of a playlist that has ended: nothing follows it
    };

    explicit PlaylistHandler(ResourceSession& session) : session_(session) {}

    void serve(LoopbackResponse& response, ResourceSession::Kind kind, const Url& url);
    // What the playlists served say of a segment (and range), if they named it.
    std::optional<SegmentFacts> segmentFacts(
        const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) const;

private:
    void remember(const ResourceSession::PlaylistServed& served);

    ResourceSession& session_;
    mutable std::mutex mutex_;
    std::map<std::string, SegmentFacts> segments_;           // by URL and range offset
    std::map<std::string, std::int64_t> variantBandwidths_;  // by media playlist URL
};

}  // namespace zarvo
