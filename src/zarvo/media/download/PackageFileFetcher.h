#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Fetches the playlists and files of a package download, on the calling thread. The asset's
// header fields go with every request. An outage is waited out: a transport failure, a 5xx,
// 408 or 429 answer is tried again after a delay that doubles up to `longestDelay` (with some
// jitter), for as long as failures in a row last less than `outageLimit`; time during which
// `mayTry` says no (the network is down) does not count. Other answers fail at once. A file
// counts as fetched only once it is whole on disk (see DurableFile). stop() ends every fetch
// and wait at once, from any thread.
class PackageFileFetcher {
public:
    struct Settings {
        std::map<std::string, std::string> headers;
        double firstDelay = 0.5;
        double longestDelay = 10;
        double outageLimit = 600;
        // False while no request for the URL can succeed (no network): tries wait for it to
        // say yes.
        std::function<bool(const Url&)> mayTry;
    };

    explicit PackageFileFetcher(Settings settings);
    PackageFileFetcher(const PackageFileFetcher&) = delete;
    PackageFileFetcher& operator=(const PackageFileFetcher&) = delete;

    // A playlist: a body past ResponseLimits::playlist is an error.
    std::variant<std::string, Error> fetchText(const Url& url);
    // Called with the length of a file whose bytes are on disk, before the file takes its
    // place: its error stops the file from taking it.
    using BeforePlacing = std::function<std::optional<Error>(std::int64_t length)>;
    // The bytes written, or why nothing was: the error names the URL (a body longer than
    // `maximumLength` is one), or the file that could not be written (MediaError::writeFailed,
    // whose text says why: a full disk, a permission), or is `beforePlacing`'s.
    std::variant<std::int64_t, Error> fetchFile(
        const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range,
        const std::filesystem::path& path, std::size_t maximumLength,
        const BeforePlacing& beforePlacing = nullptr);

    void stop();
    bool isStopped() const;
    // Waits up to `seconds`, or until stopped; false when stopped.
    bool wait(double seconds);
    // Cancels the transfers in flight without stopping the fetcher: their fetches fail at once
    // (a run that failed elsewhere ends its other fetches).
    void interrupt();

private:
    // One try: the error, and whether another try may help.
    std::optional<Error> attempt(const Url& url,
                                 const std::optional<HlsPlaylistRewriter::ByteRange>& range,
                                 std::size_t maximumLength,
                                 const std::function<bool(const char*, std::size_t)>& consume,
                                 bool& retryable);
    template <typename Try>
    std::optional<Error> withRetries(const Url& url, const Try& once);
    // Waits while `mayTry` says no; false when stopped meanwhile.
    bool waitUntilMayTry(const Url& url);

    const Settings settings_;
    const std::shared_ptr<DirectUrlConnections> connections_;
    mutable std::mutex mutex_;
    std::condition_variable stopped_;
    bool stop_ = false;
    std::set<std::shared_ptr<DirectUrlStream>> streams_;
};

}  // namespace zarvo
