#pragma once

#include "zarvo/media/loopback/ResourceSession.h"

namespace zarvo {

// Serves the files of an asset on disk (a downloaded package): only from inside the asset's
// folder (UrlAsset::mayReadFile, the asset loader's rule too), read in pieces as they are sent,
// and a byte range is cut out of the file.
class PackageFileHandler {
public:
    explicit PackageFileHandler(ResourceSession& session) : session_(session) {}

    void serve(LoopbackResponse& response, ResourceSession::Kind kind, const Url& url,
               const std::optional<HlsPlaylistRewriter::ByteRange>& range);

private:
    ResourceSession& session_;
};

}  // namespace zarvo
