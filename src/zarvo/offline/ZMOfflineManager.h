#pragma once

#include <memory>
#include <mutex>

#include "zarvo/offline/FPDownloader.h"
#include "zarvo/offline/FPDownloadsStoreProtocol.h"
#include "zarvo/offline/ZMOfflineManagerProtocol.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// The offline downloads' entry point: queues downloads, applies pause, resume, cancel and
/// restart, lists them, purges those whose files are gone, and turns the downloader's events
/// into delegate calls. Creating it takes back the downloads a previous process left running.
///
/// Call it on the main thread, where its download session reports; findEmpty() and the
/// completion of startDownload() run on worker threads. One process at a time should run the
/// downloads of an application home.
class ZARVO_EXPORT ZMOfflineManager : public ZMOfflineManagerProtocol,
                                      public std::enable_shared_from_this<ZMOfflineManager> {
public:
    /// A manager on `database` (usually an FPDownloadsStore) with a downloader and download
    /// session of its own. The session takes back, on the main queue, the tasks a previous
    /// process left; waiting downloads start with the next startDownload() (or
    /// downloader()->startNextDownload()).
    static std::shared_ptr<ZMOfflineManager> make(
        std::shared_ptr<FPDownloadsStoreProtocol> database);
    /// On a downloader of the caller's making (its session may be scripted).
    static std::shared_ptr<ZMOfflineManager> make(
        std::shared_ptr<FPDownloadsStoreProtocol> database,
        std::shared_ptr<FPDownloader> downloader);

    /// A manager not yet connected to the downloader's events: use make().
    ZMOfflineManager(std::shared_ptr<FPDownloadsStoreProtocol> database,
                     std::shared_ptr<FPDownloader> downloader);

    /// The delegate; nullptr when none is set or the host let it go.
    std::shared_ptr<ZMOfflineManagerDelegate> delegate() const override;
    /// Sets the delegate, held weakly: the host keeps it alive.
    void setDelegate(std::weak_ptr<ZMOfflineManagerDelegate> delegate) override;
    /// With true, downloads go on only while the network is not metered (as GIO's network
    /// monitor tells); they wait otherwise.
    void setIsWiFiOnly(bool isWiFiOnly) override;
    /// Every download of the store, earliest first.
    ZMOfflineDownload::List getDownloads() override;
    /// Cancels the download's task and removes its record, package and keys; then
    /// offlineManagerDidCancel, within this call, and the next waiting download starts.
    /// Nothing for an unknown id.
    void cancel(const std::string& downloadWithId) override;
    /// Cancels the download's task, removes its package and keys, and makes it waiting again
    /// with progress 0; then offlineManagerDidRestart, within this call. Nothing for an
    /// unknown id.
    void restart(const std::string& downloadWithId) override;
    /// Pauses a downloading download; then offlineManagerDidPause, within this call. Nothing
    /// for a download in another state.
    void pause(const std::string& downloadWithId) override;
    /// Resumes a paused download (no delegate call). Nothing for a download in another state.
    void resume(const std::string& downloadWithId) override;
    /// On a worker thread: removes every download whose package location does not exist
    /// (downloads without a location included, so waiting ones too), then
    /// offlineManagerDidFind with them. The location is checked as stored, relative to the
    /// current directory.
    void findEmpty() override;
    /// Queues a download of the stream at `hlsUrl` (a master or a media playlist). A HEAD
    /// request (15 s) follows its redirections first; the download gets the final address,
    /// the minimum bitrate in whole bits per second, and `headers` for its licence requests
    /// (not for the stream). With FairPlay addresses, its keys are fetched and stored as
    /// persistent keys while it downloads. The completion runs on a worker thread with the
    /// new waiting download, or with nullptr and an FPDownloadError of
    /// hlsPlaylistUrlRedirectionFail when the address gave no answer; the download starts on
    /// the main queue once none runs. `audioIds` and `subtitlesIds` are stored only: every
    /// rendition is downloaded.
    void startDownload(const std::string& title, const Url& hlsUrl,
                       const std::optional<Url>& fpsCertUrl, const std::optional<Url>& licenseUrl,
                       const std::optional<std::vector<std::string>>& audioIds,
                       const std::optional<std::vector<std::string>>& subtitlesIds,
                       std::optional<double> minBitrate,
                       const std::map<std::string, std::string>& headers,
                       Competion competition) override;

    /// The downloader underneath.
    const std::shared_ptr<FPDownloader>& downloader() const { return downloader_; }

private:
    void connect();

    mutable std::mutex mutex_;
    std::weak_ptr<ZMOfflineManagerDelegate> delegate_;
    const std::shared_ptr<FPDownloader> downloader_;
    const std::shared_ptr<FPDownloadsStoreProtocol> database_;
};

}  // namespace zarvo
