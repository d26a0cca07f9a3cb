#include "zarvo/offline/FPDownloader.h"

#include <filesystem>

#include "zarvo/offline/FPDownloadSession11.h"

namespace zarvo {

FPDownloader::FPDownloader(std::shared_ptr<FPDownloadsStoreProtocol> database)
    : database(std::move(database)) {}

std::shared_ptr<FPDownloader> FPDownloader::make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                                 AssetDownloadUrlSession::Settings settings) {
    auto session = FPDownloadSession11::make(database, std::move(settings));
    return make(std::move(database), std::move(session));
}

std::shared_ptr<FPDownloader> FPDownloader::make(std::shared_ptr<FPDownloadsStoreProtocol> database,
                                                 std::shared_ptr<FPBaseDownloadSession> session) {
    auto downloader = std::make_shared<FPDownloader>(std::move(database));
    downloader->downloadSession = std::move(session);
    downloader->connectSession();
    return downloader;
}

void FPDownloader::connectSession() {
    if (!downloadSession) {
        return;
    }
    downloadSession->onProgressUpdate = [weakSelf = weak_from_this()](const auto& download) {
        auto self = weakSelf.lock();
        if (self && self->onProgressUpdate) {
            self->onProgressUpdate(download);
        }
    };
    downloadSession->onDownloadEnd = [weakSelf = weak_from_this()](const auto& result) {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        if (self->onDownloadEnd) {
            self->onDownloadEnd(result);
        }
        self->startNextDownload();
    };
}

void FPDownloader::startNextDownload() {
    if (!downloadSession || !downloadSession->activeDownloadsMap.empty()) {
        return;
    }
    if (database->findFirstWithState(ZMOfflineDownloadState::downloading)) {
        // None runs, so it was cut off: the session's tasks are taken back.
        if (auto session = downloadSession->urlSession) {
            session->getAllTasks(
                [weakSession = std::weak_ptr<FPBaseDownloadSession>(downloadSession)](auto tasks) {
                    if (auto strong = weakSession.lock()) {
                        for (const auto& task : tasks) {
                            strong->restoreDownload(task);
                        }
                    }
                });
        }
        return;
    }
    if (auto waiting = database->findFirstWithState(ZMOfflineDownloadState::waiting)) {
        downloadSession->startDownload(waiting);
    }
}

void FPDownloader::pause(const std::string& downloadId, const Completion& completion) {
    auto download = database->findFirstWithId(downloadId);
    if (download && download->state() == ZMOfflineDownloadState::downloading && downloadSession) {
        downloadSession->pause(downloadId);
        download->setState(ZMOfflineDownloadState::paused);
        database->update(download);
        completion(download);
        return;
    }
    completion(nullptr);
}

void FPDownloader::resume(const std::string& downloadId) {
    auto download = database->findFirstWithId(downloadId);
    if (!download || download->state() != ZMOfflineDownloadState::paused || !downloadSession) {
        return;
    }
    downloadSession->resume(downloadId);
    download->setState(ZMOfflineDownloadState::downloading);
    database->update(download);
    startNextDownload();
}

void FPDownloader::cancel(const std::string& downloadId, const Completion& completion) {
    auto download = database->findFirstWithId(downloadId);
    if (!download) {
        completion(nullptr);
        startNextDownload();
        return;
    }
    if (!downloadSession) {
        return;
    }
    downloadSession->cancel(downloadId);
    database->deleteDownloadWithId(downloadId);
    removeFiles(download);
    startNextDownload();
    completion(download);
}

void FPDownloader::restart(const std::string& downloadId, const Completion& completion) {
    auto download = database->findFirstWithId(downloadId);
    if (!download) {
        completion(nullptr);
        startNextDownload();
        return;
    }
    if (!downloadSession) {
        return;
    }
    downloadSession->cancel(downloadId);
    removeFiles(download);
    download->setState(ZMOfflineDownloadState::waiting);
    download->setProgress(0);
    download->assignOfflineUrl(std::nullopt);
    database->update(download);
    startNextDownload();
    completion(download);
}

void FPDownloader::removeFiles(const std::shared_ptr<ZMOfflineDownload>& download) {
    auto asset = download->offlineUrlAsset();
    if (!asset) {
        return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(asset->url().decodedPath(), ignored);
    std::filesystem::remove_all(download->contentKeysDirPath().decodedPath(), ignored);
}

}  // namespace zarvo
