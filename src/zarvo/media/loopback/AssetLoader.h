#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/MediaSelectionGroup.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

class UrlAsset;

// Loads the playlists of one asset for the GStreamer engine. As soon as the asset exists it
// reads the master playlist (which gives the asset its media selection groups) and then the
// media playlists it names, so that the pipeline, when it asks, gets them without waiting.
// It also owns the URL session (with the asset's header fields) that every request made for
// the asset goes through.
class AssetLoader : public std::enable_shared_from_this<AssetLoader> {
public:
    // A fetched resource: the HTTP status (200 for files), the body, or the failure.
    struct Fetched {
        int statusCode = 0;
        Data body;
        std::optional<Error> error;
    };
    using FetchDone = std::function<void(Fetched)>;

    // Starts loading `asset`: http, https and file URLs; an asset with any other URL fails to
    // load at once.
    static std::shared_ptr<AssetLoader> start(const std::shared_ptr<UrlAsset>& asset,
                                              const MediaEngineKey& key);
    AssetLoader(const std::shared_ptr<UrlAsset>& asset, const MediaEngineKey& key);

    // Fetches the playlist at `url`, from what was read ahead when possible (a live playlist
    // read ahead is handed out once; a VOD one and the master stay). `done` runs on another
    // thread.
    void fetchPlaylist(const Url& url, FetchDone done);
    // Fetches any http, https or file URL.
    void fetch(const Url& url, FetchDone done);
    const std::shared_ptr<UrlSession>& session() const { return session_; }

    // The master playlist was read (by a session, for a master that the resource loader
    // supplies): the asset's groups come from it unless they are known already.
    void masterRead(const HlsPlaylistRewriter::Result& master);
    // The master playlist could not be had (by a session): the asset fails to load with
    // `error` unless it is loaded already.
    void masterFailed(const Error& error);

    // The media selection groups of a master playlist: audio renditions (audible), subtitle
    // and closed-caption renditions (legible), in playlist order, without repeats of one name
    // and language.
    static std::vector<MediaSelectionGroup> groupsOf(const HlsPlaylistRewriter::Result& master);

private:
    struct Entry {
        bool done = false;
        bool keep = false;  // VOD playlists and the master are handed out any number of times
        Fetched fetched;
        std::vector<FetchDone> waiting;
        double fetchedAt = 0;  // scheduler uptime
    };

    void readAhead(const Url& url, bool isMaster);
    void settle(const Url& url, Fetched fetched, bool isMaster);

    std::weak_ptr<UrlAsset> asset_;
    const MediaEngineKey key_;
    std::shared_ptr<UrlSession> session_;
    std::mutex mutex_;
    std::map<std::string, Entry> readAhead_;  // by absolute URL
};

}  // namespace zarvo
