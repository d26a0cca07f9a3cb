#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "zarvo/media/HlsPlaylistRewriter.h"
#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Fetches the playlists and files of a package download, on the calling thread: the asset's
// header fields go with every request; an answer of 5xx, or one that breaks off, is tried again
// after each of `retryDelays`; a file is written next to its place and renamed into it when
// whole, so a file under its own name is always complete. stop() ends every fetch and wait at
// once, from any thread.
class PackageFileFetcher {
public:
    struct Settings {
        std::map<std::string, std::string> headers;
        std::vector<double> retryDelays{0.5, 1.0, 2.0};
    };

    explicit PackageFileFetcher(Settings settings);
    PackageFileFetcher(const PackageFileFetcher&) = delete;
    PackageFileFetcher& operator=(const PackageFileFetcher&) = delete;

    // A playlist: a body past ResponseLimits::playlist is an error.
    std::variant<std::string, Error> fetchText(const Url& url);
    // The bytes written, or why nothing was: the error names the URL (a body longer than
    // `maximumLength` is one), or the file that could not be written (MediaError::writeFailed).
    std::variant<std::int64_t, Error> fetchFile(
        const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range,
        const std::filesystem::path& path, std::size_t maximumLength);

    void stop();
    bool isStopped() const;
    // Waits up to `seconds`, or until stopped; false when stopped.
    bool wait(double seconds);

    // The name a file has while it is written.
    static std::filesystem::path partialPath(const std::filesystem::path& path);

private:
    struct Attempt;
    // One try: the error, and whether another try may help.
    std::optional<Error> attempt(const Url& url,
                                 const std::optional<HlsPlaylistRewriter::ByteRange>& range,
                                 std::size_t maximumLength,
                                 const std::function<bool(const char*, std::size_t)>& consume,
                                 bool& retryable);
    template <typename Try>
    std::optional<Error> withRetries(const Url& url, const Try& once);

    const Settings settings_;
    const std::shared_ptr<DirectUrlConnections> connections_;
    mutable std::mutex mutex_;
    std::condition_variable stopped_;
    bool stop_ = false;
    std::set<std::shared_ptr<DirectUrlStream>> streams_;
};

}  // namespace zarvo
