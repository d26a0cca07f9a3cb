#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "zarvo/media/download/AssetDownloadStore.h"
#include "zarvo/media/model/MediaSelection.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

class AssetDownloadUrlSession;
class PackageFileFetcher;

// A download of one asset with all its media selections into one package directory. Made
// suspended by its session; resume() starts or continues it, suspend() stops it where it is
// (what is whole on disk stays), cancel() ends it. Called on any thread; the session's delegate
// hears of it on the delegate queue.
class ZARVO_EXPORT AggregateAssetDownloadTask
    : public std::enable_shared_from_this<AggregateAssetDownloadTask> {
public:
    enum class State { running, suspended, canceling, completed };

    std::int64_t taskIdentifier() const;
    std::string taskDescription() const;
    void setTaskDescription(std::string description);
    State state() const;
    // The error it completed with, if any.
    std::optional<Error> error() const;
    const std::shared_ptr<UrlAsset>& urlAsset() const { return asset_; }
    const std::vector<MediaSelection>& mediaSelections() const { return selections_; }
    // The package directory.
    Url location() const;

    void resume();
    void suspend();
    void cancel();

    ~AggregateAssetDownloadTask();
    AggregateAssetDownloadTask(const AggregateAssetDownloadTask&) = delete;
    AggregateAssetDownloadTask& operator=(const AggregateAssetDownloadTask&) = delete;

    struct Token {
        explicit Token() = default;
    };
    struct Settings {
        std::size_t filesInFlight = 4;
        // Files that fail are tried again, waiting from the first delay up to the longest one,
        // until failures in a row have lasted the outage limit (see PackageFileFetcher).
        double firstRetryDelay = 0.5;
        double longestRetryDelay = 10;
        double outageLimit = 600;
        // False while the network that reaches the URL must not be used (it is down, or
        // metered and not allowed).
        std::function<bool(const Url&)> mayDownload;
    };
    AggregateAssetDownloadTask(Token, std::weak_ptr<AssetDownloadUrlSession> session,
                               std::shared_ptr<AssetDownloadStore> store,
                               AssetDownloadStore::TaskRecord record,
                               std::shared_ptr<UrlAsset> asset,
                               std::vector<MediaSelection> selections, Settings settings,
                               std::optional<State> state = std::nullopt);

    // Session side: ends the task with `error` without running it (a task cut off by the end of
    // its process); the delegate hears of its package's location again, then of its end.
    void completeWithoutRunning(const Error& error);
    // Session side, for a task whose end was recorded by a process that died before its
    // delegate heard it: the delegate hears of its package's location again, then of its end.
    void tellRecordedEnd();

private:
    void run(std::shared_ptr<PackageFileFetcher> fetcher);
    std::optional<Error> download(PackageFileFetcher& fetcher);
    // Stops the run in flight; the caller joins the thread it returns.
    std::thread stopRun();
    void finish(std::optional<Error> error);
    void persist(AssetDownloadStore::TaskState state);
    // Records the end (the task is completed, its delegate has yet to hear it); under mutex_.
    void recordEnd(std::optional<Error> error);
    // Tells the delegate of the end, and records that it heard it once it did. With the
    // location, tells the package's location first.
    void tellEnd(bool withLocation);
    std::filesystem::path packagePath() const;
    void removePartialFiles() const;

    const std::weak_ptr<AssetDownloadUrlSession> session_;
    const std::shared_ptr<AssetDownloadStore> store_;
    const std::shared_ptr<UrlAsset> asset_;
    const std::vector<MediaSelection> selections_;
    const Settings settings_;

    mutable std::mutex mutex_;
    AssetDownloadStore::TaskRecord record_;
    State state_ = State::suspended;
    std::optional<Error> error_;
    bool announcedLocation_ = false;
    std::shared_ptr<PackageFileFetcher> fetcher_;  // of the run in flight
    std::thread thread_;
    std::vector<std::thread> finished_;  // runs that were stopped, joined later
};

}  // namespace zarvo
