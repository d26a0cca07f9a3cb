#pragma once

#include <memory>
#include <mutex>

#include "zarvo/offline/FPDownloader.h"
#include "zarvo/offline/FPDownloadsStoreProtocol.h"
#include "zarvo/offline/ZMOfflineManagerProtocol.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The offline downloads' entry point: queues downloads, applies pause, resume, cancel and
// restart, lists them, purges those whose files are gone, and turns the downloader's events
// into delegate calls. Creating it takes back the downloads a previous process left running.
class ZARVO_EXPORT ZMOfflineManager : public ZMOfflineManagerProtocol,
                                      public std::enable_shared_from_this<ZMOfflineManager> {
public:
    static std::shared_ptr<ZMOfflineManager> make(
        std::shared_ptr<FPDownloadsStoreProtocol> database);
    // On a downloader of the caller's making (its session may be scripted).
    static std::shared_ptr<ZMOfflineManager> make(
        std::shared_ptr<FPDownloadsStoreProtocol> database,
        std::shared_ptr<FPDownloader> downloader);

    ZMOfflineManager(std::shared_ptr<FPDownloadsStoreProtocol> database,
                     std::shared_ptr<FPDownloader> downloader);

    std::shared_ptr<ZMOfflineManagerDelegate> delegate() const override;
    void setDelegate(std::weak_ptr<ZMOfflineManagerDelegate> delegate) override;
    void setIsWiFiOnly(bool isWiFiOnly) override;
    ZMOfflineDownload::List getDownloads() override;
    void cancel(const std::string& downloadWithId) override;
    void restart(const std::string& downloadWithId) override;
    void pause(const std::string& downloadWithId) override;
    void resume(const std::string& downloadWithId) override;
    void findEmpty() override;
    void startDownload(const std::string& title, const Url& hlsUrl,
                       const std::optional<Url>& fpsCertUrl, const std::optional<Url>& licenseUrl,
                       const std::optional<std::vector<std::string>>& audioIds,
                       const std::optional<std::vector<std::string>>& subtitlesIds,
                       std::optional<double> minBitrate,
                       const std::map<std::string, std::string>& headers,
                       Competion competition) override;

    const std::shared_ptr<FPDownloader>& downloader() const { return downloader_; }

private:
    void connect();

    mutable std::mutex mutex_;
    std::weak_ptr<ZMOfflineManagerDelegate> delegate_;
    const std::shared_ptr<FPDownloader> downloader_;
    const std::shared_ptr<FPDownloadsStoreProtocol> database_;
};

}  // namespace zarvo
