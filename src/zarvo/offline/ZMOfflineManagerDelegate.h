#pragma once

#include <memory>
#include <vector>

#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class ZMOfflineManagerProtocol;

/// What the offline manager tells the application. Download events come on the main queue;
/// didFind on the global queue of findEmpty() (a worker thread); cancel, restart and pause on
/// the caller's thread, within the call. The manager holds its delegate weakly.
class ZARVO_EXPORT ZMOfflineManagerDelegate {
public:
    virtual ~ZMOfflineManagerDelegate() = default;
    /// Progress or location changed.
    virtual void offlineManagerDidUpdate(ZMOfflineManagerProtocol& manager,
                                         const std::shared_ptr<ZMOfflineDownload>& download) = 0;
    /// The download's task failed; the download stays in the list as failed.
    virtual void offlineManagerDidErrorOccur(ZMOfflineManagerProtocol& manager,
                                             const std::shared_ptr<ZMOfflineDownload>& download,
                                             const Error& error) = 0;
    /// The downloads findEmpty() found without files (and removed); possibly none.
    virtual void offlineManagerDidFind(ZMOfflineManagerProtocol& manager,
                                       const ZMOfflineDownload::List& downloads) = 0;
    /// The download was cancelled and removed, with its package and keys.
    virtual void offlineManagerDidCancel(ZMOfflineManagerProtocol& manager,
                                         const std::shared_ptr<ZMOfflineDownload>& download) = 0;
    /// The download is waiting again, from the start.
    virtual void offlineManagerDidRestart(ZMOfflineManagerProtocol& manager,
                                          const std::shared_ptr<ZMOfflineDownload>& download) = 0;
    /// The download is paused.
    virtual void offlineManagerDidPause(ZMOfflineManagerProtocol& manager,
                                        const std::shared_ptr<ZMOfflineDownload>& download) = 0;
    /// The download completed.
    virtual void offlineManagerDidFinish(ZMOfflineManagerProtocol& manager,
                                         const std::shared_ptr<ZMOfflineDownload>& result) = 0;
};

}  // namespace zarvo
