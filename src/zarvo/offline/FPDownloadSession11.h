#pragma once

#include <memory>

#include "zarvo/offline/FPBaseDownloadSession.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// The download session: aggregate tasks with every chosen media selection in one task, and
/// re-adoption of the tasks that outlived their process.
class ZARVO_EXPORT FPDownloadSession11 : public FPBaseDownloadSession {
public:
    /// A session on `store` whose platform session is open and has handed back (on the main
    /// queue) the tasks it kept.
    static std::shared_ptr<FPDownloadSession11> make(
        std::shared_ptr<FPDownloadsStoreProtocol> store,
        AssetDownloadUrlSession::Settings settings = {});

    using FPBaseDownloadSession::FPBaseDownloadSession;

    /// Maps the task to its download (by the task's description) and gives the download the
    /// task's asset; a task without a stored download is left alone.
    void restoreDownload(const Task& task) override;
    /// An aggregate task for `asset` with `mediaSelections`, titled `title`; nullptr without a
    /// platform session.
    Task createDownloadTask(const std::shared_ptr<UrlAsset>& asset, const std::string& title,
                            const std::vector<MediaSelection>& mediaSelections,
                            const AssetDownloadUrlSession::TaskOptions& options) override;
};

}  // namespace zarvo
