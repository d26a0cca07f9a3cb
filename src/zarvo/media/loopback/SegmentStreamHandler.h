#pragma once

#include "zarvo/media/loopback/ResourceSession.h"

namespace zarvo {

// Streams a session's segments (and other media) from their origin to the pipeline as they
// arrive, on the server thread that answers: a byte range is asked for and, when the origin
// ignores it, cut out of the whole body; a body longer than any stream's (see
// ResponseLimits::segment) ends the playback instead of piling up in the pipeline; a redirect
// curl did not follow is an error; every transfer, whole or broken off, is reported.
class SegmentStreamHandler {
public:
    explicit SegmentStreamHandler(ResourceSession& session) : session_(session) {}

    void serve(LoopbackResponse& response, ResourceSession::Kind kind, const Url& url,
               const std::optional<HlsPlaylistRewriter::ByteRange>& range);

private:
    ResourceSession& session_;
};

}  // namespace zarvo
