#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/download/AggregateAssetDownloadTask.h"
#include "zarvo/media/download/AssetDownloadDelegate.h"
#include "zarvo/media/download/AssetDownloadStore.h"
#include "zarvo/media/model/MediaSelection.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlSessionConfiguration.h"

namespace zarvo {

// Downloads HLS assets into packages under <home>/Library that the engine plays from disk.
// Tasks are kept in the download store under the configuration's identifier: a session made
// again with the same identifier, even in a new process, gets them back from getAllTasks; one
// that was running when its process ended then completes with UrlError::cancelled and the
// background-task-cancelled reason 0. A task made for a package's own URL continues that
// package and fetches only what it lacks.
class ZARVO_EXPORT AssetDownloadUrlSession
    : public std::enable_shared_from_this<AssetDownloadUrlSession> {
public:
    // Under this user-info key, why a background task was cancelled: 0 when its process ended.
    static constexpr const char* backgroundTaskCancelledReasonKey =
        "NSURLErrorBackgroundTaskCancelledReasonKey";

    struct TaskOptions {
        // The lowest variant with at least this BANDWIDTH is downloaded; the highest without.
        std::optional<std::int64_t> minimumRequiredMediaBitrate;
    };
    struct Settings {
        AggregateAssetDownloadTask::Settings tasks;
        // Whether the network in use is metered; GLib's network monitor when empty.
        std::function<bool()> isNetworkMetered;
        // Whether there is a network at all (tasks wait while there is none); GLib's network
        // monitor when empty, which leaves files and this host's own servers out of both
        // questions: they are reached without the network.
        std::function<bool()> isNetworkAvailable;
        // Where the records live; the store in the home when empty.
        std::shared_ptr<AssetDownloadStore> store;
    };

    // Nothing when the configuration has no identifier or the store cannot be opened.
    static std::shared_ptr<AssetDownloadUrlSession> make(
        UrlSessionConfiguration configuration, std::weak_ptr<AssetDownloadDelegate> delegate,
        std::shared_ptr<DispatchQueue> delegateQueue, Settings settings = {});

    UrlSessionConfiguration configuration() const;
    // Whether tasks may download on a metered network; takes effect at once, also for tasks
    // under way (they wait before their next file).
    void setAllowsCellularAccess(bool allows);

    // A suspended task for `asset` with `mediaSelections` (their renditions are downloaded; all
    // renditions when the asset's master is not read yet, as its selections are then unknown);
    // nothing when the session is invalidated or the asset's master cannot be named.
    std::shared_ptr<AggregateAssetDownloadTask> makeAggregateAssetDownloadTask(
        const std::shared_ptr<UrlAsset>& asset, const std::vector<MediaSelection>& mediaSelections,
        const std::string& assetTitle, const std::optional<Data>& assetArtworkData,
        const TaskOptions& options);

    // The tasks that are not completed, on the delegate queue. The first call also hands out
    // the tasks whose process ended while they ran, then completes them, and those whose end
    // their process recorded but their delegate never heard, then tells that end again.
    void getAllTasks(
        std::function<void(std::vector<std::shared_ptr<AggregateAssetDownloadTask>>)> completion);

    // Cancels every task; no task can be made afterwards.
    void invalidateAndCancel();

    // Task side: calls the delegate on the delegate queue, if it is still there.
    void post(std::function<void(AssetDownloadDelegate&, AssetDownloadUrlSession&)> call);

    struct Token {
        explicit Token() = default;
    };
    AssetDownloadUrlSession(Token, UrlSessionConfiguration configuration,
                            std::weak_ptr<AssetDownloadDelegate> delegate,
                            std::shared_ptr<DispatchQueue> delegateQueue, Settings settings);

private:
    void restoreTasks();
    AggregateAssetDownloadTask::Settings taskSettings() const;

    const UrlSessionConfiguration configuration_;
    std::atomic<bool> allowsCellularAccess_;
    const std::weak_ptr<AssetDownloadDelegate> delegate_;
    const std::shared_ptr<DispatchQueue> delegateQueue_;
    const Settings settings_;
    const std::shared_ptr<AssetDownloadStore> store_;

    std::mutex mutex_;
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> tasks_;
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> cutOff_;  // until handed out
    // Tasks whose end a dead process recorded before their delegate heard it, until handed out.
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> ended_;
    bool invalidated_ = false;
};

}  // namespace zarvo
