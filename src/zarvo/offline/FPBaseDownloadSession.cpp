#include "zarvo/offline/FPBaseDownloadSession.h"

#include <algorithm>
#include <iostream>

#include "zarvo/fairplay/FPResourceLoaderDelegate.h"
#include "zarvo/platform/FatalError.h"

namespace zarvo {
namespace {

void logMissing(const std::string& message) {
    std::cout << "[OstraCDNOfflineFairPlay] 💥 " << message << std::endl;
}

// Whether the error says the application was force-quit while the task ran.
bool wasForceQuit(const Error& error) {
    return error.userInfoValue(AssetDownloadUrlSession::backgroundTaskCancelledReasonKey) == "0";
}

}  // namespace

FPBaseDownloadSession::FPBaseDownloadSession(std::shared_ptr<FPDownloadsStoreProtocol> store)
    : downloadStore(std::move(store)),
      bkgConfig(UrlSessionConfiguration::background(backgroundIdentifier)),
      loadersQueue(DispatchQueue::serial("OfflineFairPlayDownloader.ResourceLoaderDelegateQueue")) {
}

void FPBaseDownloadSession::openSession(AssetDownloadUrlSession::Settings settings) {
    urlSession = AssetDownloadUrlSession::make(bkgConfig, weak_from_this(), DispatchQueue::main(),
                                               std::move(settings));
    if (!urlSession) {
        return;
    }
    urlSession->getAllTasks([weakSelf = weak_from_this()](std::vector<Task> tasks) {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        for (const auto& task : tasks) {
            self->restoreDownload(task);
        }
    });
}

void FPBaseDownloadSession::restoreDownload(const Task&) {
    fatalError("restoreDownload not implemented");
}

FPBaseDownloadSession::Task FPBaseDownloadSession::createDownloadTask(
    const std::shared_ptr<UrlAsset>&, const std::string&, const std::vector<MediaSelection>&,
    const AssetDownloadUrlSession::TaskOptions&) {
    fatalError("createDownloadTask not implemented");
}

std::shared_ptr<ZMOfflineDownload> FPBaseDownloadSession::download(const Task& task) {
    const std::string id = task ? task->taskDescription() : std::string();
    if (id.empty()) {
        logMissing("Download id not set.");
        return nullptr;
    }
    auto found = downloadStore->findFirstWithId(id);
    if (!found) {
        logMissing("Download with id " + id + " not found.");
    }
    return found;
}

FPBaseDownloadSession::Task FPBaseDownloadSession::startTask(
    const std::shared_ptr<ZMOfflineDownload>& download, const std::shared_ptr<UrlAsset>& asset,
    bool optionsFirst) {
    const bool mapped =
        std::any_of(activeDownloadsMap.begin(), activeDownloadsMap.end(),
                    [&](const auto& entry) { return entry.second == download->id(); });
    if (mapped || !asset) {
        fatalError("Download task for this download already exists.");
    }
    attachKeyLoader(download);
    AssetDownloadUrlSession::TaskOptions options;
    std::vector<MediaSelection> selections;
    if (!optionsFirst) {
        selections = asset->allMediaSelections();
    }
    if (download->minBitrate() >= 1) {
        options.minimumRequiredMediaBitrate = download->minBitrate();
    }
    if (optionsFirst) {
        selections = asset->allMediaSelections();
    }
    auto task = createDownloadTask(asset, download->title(), selections, options);
    if (task) {
        task->setTaskDescription(download->id());
        activeDownloadsMap[task] = download->id();
        task->resume();
    }
    return task;
}

FPBaseDownloadSession::Task FPBaseDownloadSession::startDownload(
    const std::shared_ptr<ZMOfflineDownload>& download) {
    return startTask(download, download->urlAsset(), false);
}

FPBaseDownloadSession::Task FPBaseDownloadSession::restartDownloadFromPackage(
    const std::shared_ptr<ZMOfflineDownload>& download) {
    auto asset = download->offlineUrlAsset();
    // The task goes on from the package, with the keys its first asset's loader stored: the
    // same loader answers the package's asset, from disk where it can. It is attached before
    // the task starts, whose first request may be for a key.
    if (asset) {
        attachKeyLoader(download);
        attachKeyLoaderTo(*asset, download);
    }
    return startTask(download, asset, true);
}

void FPBaseDownloadSession::attachKeyLoader(const std::shared_ptr<ZMOfflineDownload>& download) {
    if (!download->resourceLoader()) {
        download->setResourceLoader(FPResourceLoaderDelegate::make(download));
    }
    if (auto asset = download->urlAsset()) {
        attachKeyLoaderTo(*asset, download);
    }
}

void FPBaseDownloadSession::attachKeyLoaderTo(UrlAsset& asset,
                                              const std::shared_ptr<ZMOfflineDownload>& download) {
    auto& loader = asset.resourceLoader();
    if (loader->delegate()) {
        return;
    }
    loader->setPreloadsEligibleContentKeys(false);
    loader->setDelegate(download->resourceLoader(), loadersQueue);
}

void FPBaseDownloadSession::cancel(const std::string& downloadId,
                                   const std::function<void()>& completion) {
    auto found = std::find_if(activeDownloadsMap.begin(), activeDownloadsMap.end(),
                              [&](const auto& entry) { return entry.second == downloadId; });
    if (found != activeDownloadsMap.end()) {
        auto task = found->first;
        activeDownloadsMap.erase(found);
        task->cancel();
    }
    if (completion) {
        completion();
    }
}

void FPBaseDownloadSession::pause(const std::string& downloadId,
                                  const std::function<void()>& completion) {
    for (const auto& [task, id] : activeDownloadsMap) {
        if (id == downloadId && task->state() == AggregateAssetDownloadTask::State::running) {
            task->suspend();
        }
    }
    if (completion) {
        completion();
    }
}

void FPBaseDownloadSession::resume(const std::string& downloadId,
                                   const std::function<void()>& completion) {
    for (const auto& [task, id] : activeDownloadsMap) {
        if (id == downloadId && task->state() == AggregateAssetDownloadTask::State::suspended) {
            task->resume();
        }
    }
    if (completion) {
        completion();
    }
}

void FPBaseDownloadSession::willDownloadTo(AssetDownloadUrlSession&, const Task& task,
                                           const Url& location) {
    auto found = download(task);
    if (!found) {
        return;
    }
    found->setOfflineUrl(location.decodedPath());
    found->setState(ZMOfflineDownloadState::downloading);
    downloadStore->update(found);
    if (onProgressUpdate) {
        onProgressUpdate(found);
    }
}

void FPBaseDownloadSession::didLoad(AssetDownloadUrlSession&, const Task& task,
                                    const MediaTimeRange&,
                                    const std::vector<MediaTimeRange>& loadedTimeRanges,
                                    const MediaTimeRange& timeRangeExpectedToLoad,
                                    const MediaSelection&) {
    auto found = download(task);
    if (!found) {
        return;
    }
    const bool paused = found->state() == ZMOfflineDownloadState::paused;
    if (!paused) {
        found->setState(ZMOfflineDownloadState::downloading);
    }
    double computed = 0;
    for (const auto& range : loadedTimeRanges) {
        computed += range.duration.seconds() / timeRangeExpectedToLoad.duration.seconds();
    }
    computed = std::min(computed, 1.0);
    found->setProgress(std::max(found->progress(), computed));
    downloadStore->update(found);
    if (!paused && onProgressUpdate) {
        onProgressUpdate(found);
    }
}

void FPBaseDownloadSession::didCompleteFor(AssetDownloadUrlSession&, const Task& task,
                                           const MediaSelection&) {
    if (download(task)) {
        task->resume();
    }
}

void FPBaseDownloadSession::didCompleteWithError(AssetDownloadUrlSession&, const Task& task,
                                                 const std::optional<Error>& error) {
    auto found = download(task);
    if (!found) {
        return;
    }
    if (error) {
        activeDownloadsMap.erase(task);
        if (wasForceQuit(*error)) {
            restartDownloadFromPackage(found);
            return;
        }
        found->setState(ZMOfflineDownloadState::failed);
        downloadStore->update(found);
        if (onDownloadEnd) {
            onDownloadEnd(ZMOfflineDownloadResult::error(found, *error));
        }
        return;
    }
    found->setState(ZMOfflineDownloadState::completed);
    found->setProgress(1.0);
    downloadStore->update(found);
    activeDownloadsMap.erase(task);
    if (onDownloadEnd) {
        onDownloadEnd(ZMOfflineDownloadResult::success(found));
    }
}

}  // namespace zarvo
