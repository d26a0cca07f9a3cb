#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/offline/FPBaseDownloadSession.h"
#include "zarvo/offline/FPDownloadsStoreProtocol.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/offline/ZMOfflineDownloadResult.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// Runs the stored downloads one at a time, in the order they were made, and applies pause,
/// resume, cancel and restart to them, persisting every change. Used on the main thread, where
/// its session reports.
class ZARVO_EXPORT FPDownloader : public std::enable_shared_from_this<FPDownloader> {
public:
    /// Gets the download acted on, or nullptr when there was none to act on.
    using Completion = std::function<void(const std::shared_ptr<ZMOfflineDownload>&)>;

    /// Called on the main queue when a download completes or fails, before the next one
    /// starts.
    std::function<void(const ZMOfflineDownloadResult&)> onDownloadEnd;
    /// Called on the main queue when a download's location or progress changes.
    std::function<void(const std::shared_ptr<ZMOfflineDownload>&)> onProgressUpdate;
    /// Not used: each download carries its own minimum (ZMOfflineDownload::minBitrate()).
    std::optional<std::int64_t> minimumBitrate;
    /// Recorded by ZMOfflineManager::setIsWiFiOnly().
    bool isWiFiOnly = false;
    /// The downloads list.
    const std::shared_ptr<FPDownloadsStoreProtocol> database;
    /// The session that runs the tasks; nullptr leaves every action undone.
    std::shared_ptr<FPBaseDownloadSession> downloadSession;

    /// The downloader on `database`, with an FPDownloadSession11 on the same store.
    static std::shared_ptr<FPDownloader> make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                              AssetDownloadUrlSession::Settings settings = {});
    /// The downloader on a session of the caller's making.
    static std::shared_ptr<FPDownloader> make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                              std::shared_ptr<FPBaseDownloadSession> session);
    /// A downloader without a session, not connected to one (make() connects them).
    explicit FPDownloader(std::shared_ptr<FPDownloadsStoreProtocol> database);

    /// Cancels the download's task, removes its record, its package and its keys, starts the
    /// next download and calls `completion` with it; with nullptr for an unknown id.
    void cancel(const std::string& downloadId, const Completion& completion);
    /// Cancels the download's task, removes its package and its keys, makes it waiting again
    /// (progress 0, no location), starts the next download and calls `completion` with it;
    /// with nullptr for an unknown id.
    void restart(const std::string& downloadId, const Completion& completion);
    /// Suspends a downloading download's task, makes it paused and calls `completion` with
    /// it; with nullptr when the download is not downloading.
    void pause(const std::string& downloadId, const Completion& completion);
    /// Resumes a paused download's task and makes it downloading again; nothing for a download
    /// that is not paused.
    void resume(const std::string& downloadId);
    /// Starts the first waiting download unless a task runs. A download left downloading
    /// without a running task (its process ended) is taken back from the session's tasks
    /// first.
    void startNextDownload();

private:
    void connectSession();
    static void removeFiles(const std::shared_ptr<ZMOfflineDownload>& download);
};

}  // namespace zarvo
