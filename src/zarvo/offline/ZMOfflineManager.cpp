#include "zarvo/offline/ZMOfflineManager.h"

#include <filesystem>

#include "zarvo/offline/FPDownloadError.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

std::shared_ptr<ZMOfflineManager> ZMOfflineManager::make(
    std::shared_ptr<FPDownloadsStoreProtocol> database) {
    auto downloader = FPDownloader::make(database);
    return make(std::move(database), std::move(downloader));
}

std::shared_ptr<ZMOfflineManager> ZMOfflineManager::make(
    std::shared_ptr<FPDownloadsStoreProtocol> database, std::shared_ptr<FPDownloader> downloader) {
    auto manager = std::make_shared<ZMOfflineManager>(std::move(database), std::move(downloader));
    manager->connect();
    return manager;
}

ZMOfflineManager::ZMOfflineManager(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                   std::shared_ptr<FPDownloader> downloader)
    : downloader_(std::move(downloader)), database_(std::move(database)) {}

void ZMOfflineManager::connect() {
    downloader_->onProgressUpdate = [weakSelf = weak_from_this()](const auto& download) {
        auto self = weakSelf.lock();
        auto delegate = self ? self->delegate() : nullptr;
        if (delegate) {
            delegate->offlineManagerDidUpdate(*self, download);
        }
    };
    downloader_->onDownloadEnd = [weakSelf =
                                      weak_from_this()](const ZMOfflineDownloadResult& result) {
        auto self = weakSelf.lock();
        auto delegate = self ? self->delegate() : nullptr;
        if (!delegate) {
            return;
        }
        if (result.error()) {
            delegate->offlineManagerDidErrorOccur(*self, result.download(), *result.error());
        } else {
            delegate->offlineManagerDidFinish(*self, result.download());
        }
    };
}

std::shared_ptr<ZMOfflineManagerDelegate> ZMOfflineManager::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
}

void ZMOfflineManager::setDelegate(std::weak_ptr<ZMOfflineManagerDelegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

void ZMOfflineManager::setIsWiFiOnly(bool isWiFiOnly) {
    downloader_->isWiFiOnly = isWiFiOnly;
    if (auto& session = downloader_->downloadSession) {
        session->isWiFiOnly = isWiFiOnly;
        if (session->urlSession) {
            session->urlSession->setAllowsCellularAccess(!isWiFiOnly);
        }
    }
}

ZMOfflineDownload::List ZMOfflineManager::getDownloads() {
    return database_->getAllDownloads();
}

void ZMOfflineManager::cancel(const std::string& downloadWithId) {
    downloader_->cancel(downloadWithId, [this](const auto& download) {
        auto delegate = this->delegate();
        if (download && delegate) {
            delegate->offlineManagerDidCancel(*this, download);
        }
    });
}

void ZMOfflineManager::restart(const std::string& downloadWithId) {
    downloader_->restart(downloadWithId, [this](const auto& download) {
        auto delegate = this->delegate();
        if (download && delegate) {
            delegate->offlineManagerDidRestart(*this, download);
        }
    });
}

void ZMOfflineManager::pause(const std::string& downloadWithId) {
    downloader_->pause(downloadWithId, [this](const auto& download) {
        auto delegate = this->delegate();
        if (download && delegate) {
            delegate->offlineManagerDidPause(*this, download);
        }
    });
}

void ZMOfflineManager::resume(const std::string& downloadWithId) {
    downloader_->resume(downloadWithId);
}

void ZMOfflineManager::findEmpty() {
    DispatchQueue::global()->async([weakSelf = weak_from_this()] {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        ZMOfflineDownload::List missing;
        for (const auto& download : self->database_->getAllDownloads()) {
            // The stored, home-relative path as it is.
            auto offlineUrl = download->offlineUrl();
            std::error_code ignored;
            if (!std::filesystem::exists(offlineUrl ? offlineUrl->decodedPath() : "", ignored)) {
                missing.push_back(download);
            }
        }
        for (const auto& download : missing) {
            self->database_->deleteDownloadWithId(download->id());
        }
        if (auto delegate = self->delegate()) {
            delegate->offlineManagerDidFind(*self, missing);
        }
    });
}

void ZMOfflineManager::startDownload(
    const std::string& title, const Url& hlsUrl, const std::optional<Url>& fpsCertUrl,
    const std::optional<Url>& licenseUrl, const std::optional<std::vector<std::string>>& audioIds,
    const std::optional<std::vector<std::string>>& subtitlesIds, std::optional<double> minBitrate,
    const std::map<std::string, std::string>& headers, Competion competition) {
    std::optional<std::int64_t> bitrate;
    if (minBitrate) {
        bitrate = static_cast<std::int64_t>(*minBitrate);
    }
    UrlRequest request(hlsUrl, UrlRequest::CachePolicy::reloadIgnoringLocalCacheData, 15);
    request.httpMethod = "HEAD";
    auto task = UrlSession::shared()->dataTask(
        request,
        [weakSelf = weak_from_this(), title, fpsCertUrl, licenseUrl, audioIds, subtitlesIds,
         bitrate, headers, competition](
            std::optional<Data>, std::optional<HttpUrlResponse> response, std::optional<Error>) {
            auto self = weakSelf.lock();
            if (!self || !self->downloader_ || !response) {
                if (competition) {
                    competition(nullptr, makeFPDownloadError(
                                             FPDownloadError::hlsPlaylistUrlRedirectionFail));
                }
                return;
            }
            auto download =
                self->database_->createWaitingDownload(title, response->url, fpsCertUrl, licenseUrl,
                                                       audioIds, subtitlesIds, bitrate, headers);
            DispatchQueue::main()->async([weakSelf] {
                if (auto strong = weakSelf.lock()) {
                    strong->downloader_->startNextDownload();
                }
            });
            if (competition) {
                competition(download, std::nullopt);
            }
        });
    task->resume();
}

}  // namespace zarvo
