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

// Owns the background download session "FairPlayDownloads", the tasks it runs for downloads,
// and the reactions to the session's callbacks (location, progress, completion). Made through
// a subclass's make(), which creates the session with this object as its delegate.
class ZARVO_EXPORT FPBaseDownloadSession
    : public AssetDownloadDelegate,
      public std::enable_shared_from_this<FPBaseDownloadSession> {
public:
    using Task = std::shared_ptr<AggregateAssetDownloadTask>;
    static constexpr const char* backgroundIdentifier = "FairPlayDownloads";

    std::function<void(const ZMOfflineDownloadResult&)> onDownloadEnd;
    std::function<void(const std::shared_ptr<ZMOfflineDownload>&)> onProgressUpdate;
    std::map<Task, std::string> activeDownloadsMap;
    std::shared_ptr<AssetDownloadUrlSession> urlSession;
    const std::shared_ptr<FPDownloadsStoreProtocol> downloadStore;
    bool isWiFiOnly = false;
    const UrlSessionConfiguration bkgConfig;
    const std::shared_ptr<DispatchQueue> loadersQueue;

    explicit FPBaseDownloadSession(std::shared_ptr<FPDownloadsStoreProtocol> store);
    ~FPBaseDownloadSession() override = default;

    virtual void restoreDownload(const Task& task);
    virtual Task createDownloadTask(const std::shared_ptr<UrlAsset>& asset,
                                    const std::string& title,
                                    const std::vector<MediaSelection>& mediaSelections,
                                    const AssetDownloadUrlSession::TaskOptions& options);

    Task startDownload(const std::shared_ptr<ZMOfflineDownload>& download);
    Task restartDownloadFromPackage(const std::shared_ptr<ZMOfflineDownload>& download);
    void cancel(const std::string& downloadId, const std::function<void()>& completion = {});
    void pause(const std::string& downloadId, const std::function<void()>& completion = {});
    void resume(const std::string& downloadId, const std::function<void()>& completion = {});
    std::shared_ptr<ZMOfflineDownload> download(const Task& task);
    void attachKeyLoader(const std::shared_ptr<ZMOfflineDownload>& download);

    // The session's callbacks, on the main queue.
    void willDownloadTo(AssetDownloadUrlSession& session, const Task& task,
                        const Url& location) override;
    void didLoad(AssetDownloadUrlSession& session, const Task& task,
                 const MediaTimeRange& timeRange,
                 const std::vector<MediaTimeRange>& loadedTimeRanges,
                 const MediaTimeRange& timeRangeExpectedToLoad,
                 const MediaSelection& mediaSelection) override;
    void didCompleteFor(AssetDownloadUrlSession& session, const Task& task,
                        const MediaSelection& mediaSelection) override;
    void didCompleteWithError(AssetDownloadUrlSession& session, const Task& task,
                              const std::optional<Error>& error) override;

protected:
    // Creates the platform session with this object as its delegate and re-adopts the tasks
    // it kept.
    void openSession(AssetDownloadUrlSession::Settings settings = {});

private:
    Task startTask(const std::shared_ptr<ZMOfflineDownload>& download,
                   const std::shared_ptr<UrlAsset>& asset, bool optionsFirst);
};

}  // namespace zarvo
