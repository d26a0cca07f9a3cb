#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zarvo/offline/ZMOfflineManagerDelegate.h"

namespace zarvo::test {

// A host's offline delegate that keeps the ids of the downloads each event named, in order.
// For tests that link the offline library.
class RecordingOfflineDelegate : public ZMOfflineManagerDelegate {
public:
    using DownloadPtr = std::shared_ptr<ZMOfflineDownload>;

    void offlineManagerDidUpdate(ZMOfflineManagerProtocol&, const DownloadPtr& d) override {
        updates.push_back(d->id());
    }
    void offlineManagerDidErrorOccur(ZMOfflineManagerProtocol&, const DownloadPtr& d,
                                     const Error& error) override {
        errors.emplace_back(d->id(), error);
    }
    void offlineManagerDidFind(ZMOfflineManagerProtocol&,
                               const ZMOfflineDownload::List& found) override {
        std::lock_guard lock(mutex);
        empty = found;
        foundCalls++;
    }
    void offlineManagerDidCancel(ZMOfflineManagerProtocol&, const DownloadPtr& d) override {
        cancelled.push_back(d->id());
    }
    void offlineManagerDidRestart(ZMOfflineManagerProtocol&, const DownloadPtr& d) override {
        restarted.push_back(d->id());
    }
    void offlineManagerDidPause(ZMOfflineManagerProtocol&, const DownloadPtr& d) override {
        paused.push_back(d->id());
    }
    void offlineManagerDidFinish(ZMOfflineManagerProtocol&, const DownloadPtr& d) override {
        finished.push_back(d->id());
    }

    std::vector<std::string> updates, cancelled, restarted, paused, finished;
    std::vector<std::pair<std::string, Error>> errors;
    // offlineManagerDidFind comes on a global queue.
    std::mutex mutex;
    ZMOfflineDownload::List empty;
    std::atomic<int> foundCalls{0};
};

}  // namespace zarvo::test
