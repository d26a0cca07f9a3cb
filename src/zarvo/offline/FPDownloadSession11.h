#pragma once

#include <memory>

#include "zarvo/offline/FPBaseDownloadSession.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The download session: aggregate tasks with every chosen media selection in one task, and
// re-adoption of the tasks that outlived their process.
class ZARVO_EXPORT FPDownloadSession11 : public FPBaseDownloadSession {
public:
    static std::shared_ptr<FPDownloadSession11> make(
        std::shared_ptr<FPDownloadsStoreProtocol> store,
        AssetDownloadUrlSession::Settings settings = {});

    using FPBaseDownloadSession::FPBaseDownloadSession;

    void restoreDownload(const Task& task) override;
    Task createDownloadTask(const std::shared_ptr<UrlAsset>& asset, const std::string& title,
                            const std::vector<MediaSelection>& mediaSelections,
                            const AssetDownloadUrlSession::TaskOptions& options) override;
};

}  // namespace zarvo
