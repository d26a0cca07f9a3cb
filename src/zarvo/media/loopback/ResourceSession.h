#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

class DirectUrlConnections;
class DirectUrlStream;
class KeyHandler;
class PackageFileHandler;
class PlaylistHandler;
class SegmentStreamHandler;
class TransferGate;
class UrlAsset;
struct LoopbackResponse;

// Everything one playback of an asset loads, served to the pipeline under one token of the
// ResourceServer, from a table of the references it wrote itself. Each kind has its handler:
// playlists are fetched (or taken from what the AssetLoader read ahead) and rewritten so that
// each URI they name leads back here (PlaylistHandler); segments stream through from the origin
// as they arrive, fetched on the server thread that answers and never held whole
// (SegmentStreamHandler), or are read from inside the folder of an asset on disk
// (PackageFileHandler); keys with an http(s) or file URL are fetched, others become loading
// requests for the asset's resource loader (KeyHandler). What the session learns on the way (the
// playlists it served, each transfer, failures) goes to its observer on the observer's queue.
class ResourceSession : public std::enable_shared_from_this<ResourceSession> {
public:
    // What a served URL stands for.
    enum class Kind : char {
        master = 'm',
        variantPlaylist = 'v',
        renditionPlaylist = 'r',
        segment = 's',
        initializationSection = 'i',
        key = 'k',
        other = 'o',
    };
    struct PlaylistServed {
        Kind kind = Kind::master;
        Url url;
        HlsPlaylistRewriter::Result info;  // without its text
    };
    struct Transfer {
        Kind kind = Kind::segment;
        Url url;
        std::int64_t bytes = 0;
        double seconds = 0;                   // from the request to the last byte
        std::optional<double> mediaDuration;  // EXTINF of the segment, when known
        bool complete = true;                 // false when it broke off
    };
    class Observer {
    public:
        virtual ~Observer() = default;
        virtual void playlistServed(const PlaylistServed& playlist) = 0;
        virtual void transferred(const Transfer& transfer) = 0;
        // A failure that ends the playback (a content key that could not be had).
        virtual void failed(const Error& error) = 0;
    };
    // Called on the server's thread with what the master offers, before it goes out to the
    // pipeline: for what must be in place before the pipeline reads it. Quick; it calls nothing
    // of the session.
    using MasterServing = std::function<void(const HlsPlaylistRewriter::Result& master)>;

    static std::shared_ptr<ResourceSession> open(std::shared_ptr<UrlAsset> asset,
                                                 std::shared_ptr<AssetLoader> loader,
                                                 std::weak_ptr<Observer> observer,
                                                 std::shared_ptr<DispatchQueue> observerQueue,
                                                 MasterServing masterServing = {});
    ~ResourceSession();
    ResourceSession(const ResourceSession&) = delete;
    ResourceSession& operator=(const ResourceSession&) = delete;

    // The URL the pipeline opens: the asset's master playlist, served here.
    const std::string& entryUrl() const { return entryUrl_; }
    // Stops serving: transfers in flight are cancelled, loading requests the delegate holds
    // are cancelled (it is told), waiting requests are let go; later requests get 404.
    void close();
    // After close(): waits, up to `limit`, until every answer to a playlist or key request that
    // was under way has been given and read, and no answer has ended for answersSettleTime. The
    // pipeline's demuxer waits for playlists with a thread of its own, and one stopped while it
    // waits aborts the process (hlsdemux2 asserts that a download that did not fail has a body),
    // so the pipeline is stopped only after this. The quiet time lets a request sent just before
    // close() arrive, and the demuxer take in the last answer. False when the limit passed first.
    bool awaitAnswersRead(std::chrono::milliseconds limit);
    static constexpr std::chrono::milliseconds answersSettleTime{30};
    // The server's count of requests of this session being answered (on its threads).
    void answerBegan();
    void answerEnded();
    // The last resource that could not be served and why. The pipeline may get over it (it
    // retries); when it does not, this explains its error. Kept before the answer goes out, so
    // it is there by the time the pipeline reports the answer.
    std::optional<Error> lastFailure() const;
    // What holds the bodies of segments and files still around a flushing seek.
    const std::shared_ptr<TransferGate>& transferGate() const { return gate_; }

    // The server's entry point for a request of this session that names one of its
    // references (on a server thread). A reference it never wrote gets 404.
    void handle(LoopbackResponse& response, std::string_view reference);

    // The URL under which this session serves `url` as `kind`: a short reference of its own,
    // the same for the same resource each time, so that the session serves only what it wrote
    // into the playlists it rewrote (and its entry).
    std::string urlFor(Kind kind, const Url& url,
                       const std::optional<HlsPlaylistRewriter::ByteRange>& range = {}) const;

    // The media type a resource is served with, from its extension.
    static std::string contentTypeFor(const Url& url);

    struct Token {
        explicit Token() = default;
    };
    ResourceSession(Token, std::shared_ptr<UrlAsset> asset, std::shared_ptr<AssetLoader> loader,
                    std::weak_ptr<Observer> observer, std::shared_ptr<DispatchQueue> queue);

private:
    friend class KeyHandler;
    friend class PackageFileHandler;
    friend class PlaylistHandler;
    friend class SegmentStreamHandler;

    struct Reference {
        Kind kind = Kind::other;
        Url url;
        std::optional<HlsPlaylistRewriter::ByteRange> range;
    };

    // "<url>" or "<url>~<range offset>": one resource of a playlist.
    static std::string resourceKey(const Url& url,
                                   const std::optional<HlsPlaylistRewriter::ByteRange>& range);

    // For the handlers, on server threads.
    // Starts a fetch through the loader and waits for it; nothing when the session closed first.
    std::optional<AssetLoader::Fetched> awaitFetch(
        const std::function<void(AssetLoader::FetchDone)>& start);
    // Waits until `done` holds (true) or the session closes (false); `done` runs under mutex_,
    // and whoever makes it true calls wake().
    bool waitUntil(const std::function<bool()>& done);
    void wake() { changed_.notify_all(); }
    void notify(std::function<void(Observer&)> call);
    void recordFailure(const Error& error);
    // A failure that asking again cannot mend: it ends the playback.
    void failPlayback(const Error& error);
    bool isClosed() const;
    // Streams from origins in flight, cancelled when the session closes.
    void track(const std::shared_ptr<DirectUrlStream>& stream);
    void untrack(const std::shared_ptr<DirectUrlStream>& stream);

    const std::shared_ptr<UrlAsset> asset_;
    const std::shared_ptr<AssetLoader> loader_;
    const std::weak_ptr<Observer> observer_;
    const std::shared_ptr<DispatchQueue> observerQueue_;
    MasterServing masterServing_;  // set before the session is reachable
    const std::shared_ptr<DirectUrlConnections> connections_;  // to origins, for segments
    const std::shared_ptr<TransferGate> gate_;
    const std::unique_ptr<PlaylistHandler> playlists_;
    const std::unique_ptr<SegmentStreamHandler> streams_;
    const std::unique_ptr<PackageFileHandler> files_;
    const std::unique_ptr<KeyHandler> keys_;
    std::string base_;  // "http://127.0.0.1:<port>/<token>"
    std::string token_;
    std::string entryUrl_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    std::size_t answering_ = 0;
    std::chrono::steady_clock::time_point lastAnswerEnded_;  // or when the session closed
    std::set<std::shared_ptr<DirectUrlStream>> inFlight_;
    std::optional<Error> lastFailure_;

    // What the session wrote into its playlists, by reference number, and the number of each.
    // A live stream names new segments for as long as it plays: past a bound, the oldest
    // segments' references go (the pipeline has long asked for them); playlists and keys stay.
    mutable std::mutex referencesMutex_;
    mutable std::map<std::size_t, Reference> references_;
    mutable std::map<std::string, std::size_t> referenceNumbers_;
    mutable std::deque<std::map<std::string, std::size_t>::iterator> segmentReferences_;
    mutable std::size_t nextReference_ = 0;
};

}  // namespace zarvo
