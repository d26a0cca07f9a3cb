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

// Runs the stored downloads one at a time, in the order they were made, and applies pause,
// resume, cancel and restart to them, persisting every change.
class ZARVO_EXPORT FPDownloader : public std::enable_shared_from_this<FPDownloader> {
public:
    using Completion = std::function<void(const std::shared_ptr<ZMOfflineDownload>&)>;

    std::function<void(const ZMOfflineDownloadResult&)> onDownloadEnd;
    std::function<void(const std::shared_ptr<ZMOfflineDownload>&)> onProgressUpdate;
    std::optional<std::int64_t> minimumBitrate;
    bool isWiFiOnly = false;
    const std::shared_ptr<FPDownloadsStoreProtocol> database;
    std::shared_ptr<FPBaseDownloadSession> downloadSession;

    // The downloader on `database`, with an FPDownloadSession11 on the same store.
    static std::shared_ptr<FPDownloader> make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                              AssetDownloadUrlSession::Settings settings = {});
    // The downloader on a session of the caller's making.
    static std::shared_ptr<FPDownloader> make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                              std::shared_ptr<FPBaseDownloadSession> session);
    explicit FPDownloader(std::shared_ptr<FPDownloadsStoreProtocol> database);

    void cancel(const std::string& downloadId, const Completion& completion);
    void restart(const std::string& downloadId, const Completion& completion);
    void pause(const std::string& downloadId, const Completion& completion);
    void resume(const std::string& downloadId);
    void startNextDownload();

private:
    void connectSession();
    static void removeFiles(const std::shared_ptr<ZMOfflineDownload>& download);
};

}  // namespace zarvo
