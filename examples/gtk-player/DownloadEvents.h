#pragma once

#include <functional>
#include <memory>
#include <zarvo/offline/ZMOfflineManagerDelegate.h>

namespace gtkplayer {

// The offline manager's delegate: each event about a download becomes a call of `changed`
// (progress, pause, restart, the end), `removed` (cancel) or `failed`.
// The manager holds its delegate weakly; its owner keeps it alive.
class DownloadEvents : public zarvo::ZMOfflineManagerDelegate {
public:
    using Download = std::shared_ptr<zarvo::ZMOfflineDownload>;

    std::function<void(const Download&)> changed;
    std::function<void(const Download&)> removed;
    std::function<void(const Download&, const zarvo::Error&)> failed;

    void offlineManagerDidUpdate(zarvo::ZMOfflineManagerProtocol&,
                                 const Download& download) override {
        changed(download);
    }
    void offlineManagerDidErrorOccur(zarvo::ZMOfflineManagerProtocol&, const Download& download,
                                     const zarvo::Error& error) override {
        failed(download, error);
    }
    void offlineManagerDidCancel(zarvo::ZMOfflineManagerProtocol&,
                                 const Download& download) override {
        removed(download);
    }
    void offlineManagerDidRestart(zarvo::ZMOfflineManagerProtocol&,
                                  const Download& download) override {
        changed(download);
    }
    void offlineManagerDidPause(zarvo::ZMOfflineManagerProtocol&,
                                const Download& download) override {
        changed(download);
    }
    void offlineManagerDidFinish(zarvo::ZMOfflineManagerProtocol&,
                                 const Download& download) override {
        changed(download);
    }
    // Only findEmpty() reports this, which this application does not call.
    void offlineManagerDidFind(zarvo::ZMOfflineManagerProtocol&,
                               const zarvo::ZMOfflineDownload::List&) override {}
};

}  // namespace gtkplayer
