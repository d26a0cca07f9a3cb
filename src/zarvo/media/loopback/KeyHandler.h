#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/media/loopback/ResourceSession.h"

namespace zarvo {

class AssetResourceLoadingRequest;

// Serves a session's content keys. A key with an http(s) or file URL is fetched through the
// asset loader; any other becomes a loading request for the asset's resource loader, which
// requests for the same key wait on together, and whose failure ends the playback. Keys loaded
// are kept for the session.
class KeyHandler {
public:
    explicit KeyHandler(ResourceSession& session) : session_(session) {}

    void serve(LoopbackResponse& response, const Url& url);
    // The session closed: loading requests the resource loader holds are cancelled (it is
    // told when it had accepted them).
    void close();

private:
    struct KeyWait;
    std::optional<Data> fetch(const Url& url, std::optional<Error>& error);
    std::optional<Data> loadThroughDelegate(const Url& url, std::optional<Error>& error);

    ResourceSession& session_;
    // Guarded by the session's mutex, which its waits use.
    std::map<std::string, Data> keys_;                       // by URI, once loaded
    std::map<std::string, std::shared_ptr<KeyWait>> waits_;  // loads in flight by URI
};

}  // namespace zarvo
