#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/download/AggregateAssetDownloadTask.h"
#include "zarvo/media/download/AssetDownloadDelegate.h"
#include "zarvo/media/download/AssetDownloadUrlSession.h"
#include "zarvo/offline/FPDownloadsStoreProtocol.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/offline/ZMOfflineDownloadResult.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlSessionConfiguration.h"

namespace zarvo {

/// Owns the background download session "FairPlayDownloads", the tasks it runs for downloads,
/// and the reactions to the session's callbacks (location, progress, completion). Made through
/// a subclass's make(), which creates the session with this object as its delegate. Used on the
/// main thread, where the session reports.
class ZARVO_EXPORT FPBaseDownloadSession
    : public AssetDownloadDelegate,
      public std::enable_shared_from_this<FPBaseDownloadSession> {
public:
    /// A download task of the session.
    using Task = std::shared_ptr<AggregateAssetDownloadTask>;
    /// The session's identifier: "FairPlayDownloads". Its tasks outlive the process and are
    /// taken back by the next session of that name.
    static constexpr const char* backgroundIdentifier = "FairPlayDownloads";

    /// Called when a download's task completes (state completed, progress 1) or fails (state
    /// failed).
    std::function<void(const ZMOfflineDownloadResult&)> onDownloadEnd;
    /// Called when a download gets its location or, unless paused, loads more.
    std::function<void(const std::shared_ptr<ZMOfflineDownload>&)> onProgressUpdate;
    /// The running tasks and the ids of their downloads.
    std::map<Task, std::string> activeDownloadsMap;
    /// The platform download session; nullptr when it could not be made.
    std::shared_ptr<AssetDownloadUrlSession> urlSession;
    /// The downloads list.
    const std::shared_ptr<FPDownloadsStoreProtocol> downloadStore;
    /// Recorded by ZMOfflineManager::setIsWiFiOnly() (which also tells urlSession).
    bool isWiFiOnly = false;
    /// The background configuration named backgroundIdentifier.
    const UrlSessionConfiguration bkgConfig;
    /// The serial queue the downloads' key loaders run on.
    const std::shared_ptr<DispatchQueue> loadersQueue;

    /// A session object on `store`; the platform session is made by openSession().
    explicit FPBaseDownloadSession(std::shared_ptr<FPDownloadsStoreProtocol> store);
    ~FPBaseDownloadSession() override = default;

    /// Adopts a task that the platform session kept from an earlier process. Subclasses
    /// implement it; this one stops the process.
    virtual void restoreDownload(const Task& task);
    /// Makes the platform task for `asset`. Subclasses implement it; this one stops the
    /// process.
    virtual Task createDownloadTask(const std::shared_ptr<UrlAsset>& asset,
                                    const std::string& title,
                                    const std::vector<MediaSelection>& mediaSelections,
                                    const AssetDownloadUrlSession::TaskOptions& options);

    /// Starts the task of `download` on its stream with every media selection, its key loader
    /// attached and its minimum bitrate. A download that already has a task stops the process.
    Task startDownload(const std::shared_ptr<ZMOfflineDownload>& download);
    /// Starts a task that continues the download's package on disk, answering its keys with
    /// the loader that stored them.
    Task restartDownloadFromPackage(const std::shared_ptr<ZMOfflineDownload>& download);
    /// Cancels the download's task, if any, and forgets it; then calls `completion`.
    void cancel(const std::string& downloadId, const std::function<void()>& completion = {});
    /// Suspends the download's running task, if any; then calls `completion`.
    void pause(const std::string& downloadId, const std::function<void()>& completion = {});
    /// Resumes the download's suspended task, if any; then calls `completion`.
    void resume(const std::string& downloadId, const std::function<void()>& completion = {});
    /// The download of `task` (named by its task description); nullptr, with a line on
    /// standard output, when there is none.
    std::shared_ptr<ZMOfflineDownload> download(const Task& task);
    /// Gives `download` its offline key loader (made once) and attaches it to the download's
    /// asset, unless that asset already has a loader.
    void attachKeyLoader(const std::shared_ptr<ZMOfflineDownload>& download);

    // The session's callbacks, on the main queue.
    /// The task's package goes to `location`: the download records it and becomes
    /// downloading.
    void willDownloadTo(AssetDownloadUrlSession& session, const Task& task,
                        const Url& location) override;
    /// More media time loaded: the progress becomes the loaded share of the expected time (it
    /// never goes back), and a download that is not paused becomes downloading.
    void didLoad(AssetDownloadUrlSession& session, const Task& task,
                 const MediaTimeRange& timeRange,
                 const std::vector<MediaTimeRange>& loadedTimeRanges,
                 const MediaTimeRange& timeRangeExpectedToLoad,
                 const MediaSelection& mediaSelection) override;
    /// A media selection is complete: the task goes on with the next.
    void didCompleteFor(AssetDownloadUrlSession& session, const Task& task,
                        const MediaSelection& mediaSelection) override;
    /// The task ended: completed without an error, failed with one. A task cut off by the end
    /// of its process is started again from its package instead.
    void didCompleteWithError(AssetDownloadUrlSession& session, const Task& task,
                              const std::optional<Error>& error) override;

protected:
    /// Creates the platform session with this object as its delegate and re-adopts the tasks
    /// it kept.
    void openSession(AssetDownloadUrlSession::Settings settings = {});

private:
    // Makes the download's key loader the delegate of `asset`'s resource loader, unless that
    // loader has one.
    void attachKeyLoaderTo(UrlAsset& asset, const std::shared_ptr<ZMOfflineDownload>& download);
    Task startTask(const std::shared_ptr<ZMOfflineDownload>& download,
                   const std::shared_ptr<UrlAsset>& asset, bool optionsFirst);
};

}  // namespace zarvo
