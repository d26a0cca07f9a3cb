#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "zarvo/media/download/AssetDownloadStore.h"
#include "zarvo/media/download/HlsPackagePlan.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

class PackageFileFetcher;

// One run of a package download, on the calling thread. The first run plans the package from
// the playlists and saves the plan; later runs follow the saved plan, whatever the playlists
// say by then. A file counts as on disk when it is there with the length the records give it
// (its byte range's, or the one it had when it was fetched); every other file is fetched again,
// a few at a time, and recorded once its bytes are on disk, before it takes its place. The keys
// that the resource loader answers are asked for, and the local playlists are written last.
class PackageDownloadRun {
public:
    struct Hooks {
        // The package's place is known (its folders are made): once per run.
        std::function<void()> located;
        // Media seconds of the files on disk, of `total`; called as the figure grows.
        std::function<void(double seconds, double total, double duration)> progressed;
        // Asks the resource loader for a key; its failure ends the run.
        std::function<std::optional<Error>(const Url& key)> loadKey;
    };

    PackageDownloadRun(AssetDownloadStore& store, AssetDownloadStore::TaskRecord record,
                       PackageFileFetcher& fetcher, std::size_t filesInFlight, Hooks hooks);

    // The error that ended the run, if any (UrlError::cancelled once the fetcher was stopped).
    std::optional<Error> run();

private:
    std::variant<HlsPackagePlan, Error> plan();
    std::optional<Error> makeFolders(const HlsPackagePlan& plan) const;
    std::optional<Error> fetchMissing(const HlsPackagePlan& plan);
    std::optional<Error> writePlaylists(const HlsPackagePlan& plan) const;
    std::optional<Error> recordFailure(const std::string& what) const;

    AssetDownloadStore& store_;
    const AssetDownloadStore::TaskRecord record_;
    const std::filesystem::path package_;
    PackageFileFetcher& fetcher_;
    const std::size_t filesInFlight_;
    const Hooks hooks_;
};

}  // namespace zarvo
