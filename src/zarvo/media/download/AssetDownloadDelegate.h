#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "zarvo/media/model/MediaSelection.h"
#include "zarvo/media/model/MediaTimeRange.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

class AssetDownloadUrlSession;
class AggregateAssetDownloadTask;

// What a download session tells about its tasks, on its delegate queue.
class ZARVO_EXPORT AssetDownloadDelegate {
public:
    virtual ~AssetDownloadDelegate() = default;

    // Once per task, before its first byte: the package directory it downloads into.
    virtual void willDownloadTo(AssetDownloadUrlSession& session,
                                const std::shared_ptr<AggregateAssetDownloadTask>& task,
                                const Url& location) {
        (void)session, (void)task, (void)location;
    }
    // After each file: the time ranges loaded so far against the whole range to load.
    virtual void didLoad(AssetDownloadUrlSession& session,
                         const std::shared_ptr<AggregateAssetDownloadTask>& task,
                         const MediaTimeRange& timeRange,
                         const std::vector<MediaTimeRange>& loadedTimeRanges,
                         const MediaTimeRange& timeRangeExpectedToLoad,
                         const MediaSelection& mediaSelection) {
        (void)session, (void)task, (void)timeRange, (void)loadedTimeRanges,
            (void)timeRangeExpectedToLoad, (void)mediaSelection;
    }
    // Each media selection of the task, once the package holds it.
    virtual void didCompleteFor(AssetDownloadUrlSession& session,
                                const std::shared_ptr<AggregateAssetDownloadTask>& task,
                                const MediaSelection& mediaSelection) {
        (void)session, (void)task, (void)mediaSelection;
    }
    // The task ended: nothing when the package is whole, else why it is not (cancelled tasks
    // end with UrlError::cancelled).
    virtual void didCompleteWithError(AssetDownloadUrlSession& session,
                                      const std::shared_ptr<AggregateAssetDownloadTask>& task,
                                      const std::optional<Error>& error) {
        (void)session, (void)task, (void)error;
    }
};

}  // namespace zarvo
