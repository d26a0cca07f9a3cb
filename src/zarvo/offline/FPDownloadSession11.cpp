#include "zarvo/offline/FPDownloadSession11.h"

namespace zarvo {

std::shared_ptr<FPDownloadSession11> FPDownloadSession11::make(
    std::shared_ptr<FPDownloadsStoreProtocol> store, AssetDownloadUrlSession::Settings settings) {
    auto session = std::make_shared<FPDownloadSession11>(std::move(store));
    session->openSession(std::move(settings));
    return session;
}

void FPDownloadSession11::restoreDownload(const Task& task) {
    auto found = download(task);
    if (!found) {
        return;
    }
    activeDownloadsMap[task] = found->id();
    found->setUrlAsset(task->urlAsset());
}

FPBaseDownloadSession::Task FPDownloadSession11::createDownloadTask(
    const std::shared_ptr<UrlAsset>& asset, const std::string& title,
    const std::vector<MediaSelection>& mediaSelections,
    const AssetDownloadUrlSession::TaskOptions& options) {
    if (!urlSession) {
        return nullptr;
    }
    return urlSession->makeAggregateAssetDownloadTask(asset, mediaSelections, title, std::nullopt,
                                                      options);
}

}  // namespace zarvo
