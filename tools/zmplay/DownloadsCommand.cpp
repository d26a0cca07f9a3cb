// zmplay downloads: lists the offline downloads of the application home, or deletes one.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/offline/ZMOfflineManager.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UserDefaults.h"

#include "zmplay/Command.h"
#include "zmplay/DownloadLock.h"

namespace zarvo::zmplay::downloads_command {
namespace {

constexpr const char* usage =
    "downloads [--json] | delete ID | pause|resume|cancel|restart ID | --wait";

std::string percent(double progress) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", progress * 100.0);
    return text;
}

// Warns when a stored list exists that the store reads as empty.
void warnIfUnreadable() {
    auto defaults = UserDefaults::standard();
    if (!defaults || !defaults->hasValue(FPDownloadsStore::DownloadsJsonKey)) {
        return;
    }
    auto text = defaults->string(FPDownloadsStore::DownloadsJsonKey);
    if (!text || !OfflineDownloadJson::decodeList(*text)) {
        std::cerr << "zmplay downloads: the stored list (" << FPDownloadsStore::DownloadsJsonKey
                  << ") cannot be read; the next save keeps it under "
                  << FPDownloadsStore::UnreadableDownloadsJsonKey << "\n";
    }
}

int list(bool asJson) {
    FPDownloadsStore store;
    ZMOfflineDownload::List downloads = store.getAllDownloads();
    if (downloads.empty()) {
        warnIfUnreadable();
    }
    if (asJson) {
        Json array = Json::array();
        for (const auto& download : downloads) {
            array.push_back(OfflineDownloadJson::toJson(*download));
        }
        std::cout << json::dump(array) << "\n";
        return 0;
    }
    if (downloads.empty()) {
        std::cout << "No downloads.\n";
        return 0;
    }
    std::cout << "ID\tTITLE\tSTATE\tPROGRESS\tPLAYLIST URL\tOFFLINE URL\n";
    for (const auto& download : downloads) {
        auto offlineUrl = download->offlineUrl();
        std::cout << download->id() << "\t" << download->title() << "\t" << name(download->state())
                  << "\t" << percent(download->progress()) << "\t"
                  << download->url().absoluteString() << "\t"
                  << (offlineUrl ? offlineUrl->absoluteString() : "-") << "\n";
    }
    return 0;
}

int remove(const std::string& id) {
    FPDownloadsStore store;
    auto download = store.findFirstWithId(id);
    if (!download) {
        std::cerr << "zmplay downloads: no download with id " << id << "\n";
        return 1;
    }
    store.deleteDownloadWithId(id);
    std::cout << "Deleted " << download->description() << "\n";
    return 0;
}

// Reports what the manager says about the downloads, one line each.
class Reporter : public ZMOfflineManagerDelegate {
public:
    void offlineManagerDidUpdate(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>&) override {}
    void offlineManagerDidErrorOccur(ZMOfflineManagerProtocol&,
                                     const std::shared_ptr<ZMOfflineDownload>& download,
                                     const Error& error) override {
        std::cout << "Failed " << download->id() << ": " << error.localizedDescription() << "\n";
        failed = true;
    }
    void offlineManagerDidFind(ZMOfflineManagerProtocol&, const ZMOfflineDownload::List&) override {
    }
    void offlineManagerDidCancel(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>& download) override {
        std::cout << "Cancelled " << download->id() << "\n";
        done = true;
    }
    void offlineManagerDidRestart(ZMOfflineManagerProtocol&,
                                  const std::shared_ptr<ZMOfflineDownload>& download) override {
        std::cout << "Restarted " << download->id() << "\n";
        done = true;
    }
    void offlineManagerDidPause(ZMOfflineManagerProtocol&,
                                const std::shared_ptr<ZMOfflineDownload>& download) override {
        std::cout << "Paused " << download->id() << "\n";
        done = true;
    }
    void offlineManagerDidFinish(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>& download) override {
        std::cout << "Finished " << download->id() << "\n";
    }
    bool done = false;
    bool failed = false;  // a download that this process ran ended in failure
};

bool busy(FPDownloadsStoreProtocol& store) {
    return store.findFirstWithState(ZMOfflineDownloadState::downloading) ||
           store.findFirstWithState(ZMOfflineDownloadState::waiting);
}

// Acts on one download through a manager of this process; --wait runs the downloads until none
// is running or waiting. Creating the manager takes back what a killed process left running.
int act(const std::string& action, const std::string& id) {
    DownloadLock lock("downloads");
    auto store = std::make_shared<FPDownloadsStore>();
    auto manager = ZMOfflineManager::make(store);
    auto reporter = std::make_shared<Reporter>();
    manager->setDelegate(reporter);
    if (action == "--wait") {
        // The tasks a killed process left are handed back on the main queue.
        RunLoop::main().runUntilIdle();
        manager->downloader()->startNextDownload();
        RunLoop::main().runUntil([&] { return !busy(*store); }, std::chrono::hours(24));
        return reporter->failed ? 1 : 0;
    }
    if (!store->findFirstWithId(id)) {
        std::cerr << "zmplay downloads: no download with id " << id << "\n";
        return 1;
    }
    RunLoop::main().runUntilIdle();
    if (action == "pause") {
        manager->pause(id);
    } else if (action == "resume") {
        manager->resume(id);
        std::cout << "Resumed " << id << "\n";
        // The download runs in this process: it goes on until nothing is left to download.
        RunLoop::main().runUntil([&] { return !busy(*store); }, std::chrono::hours(24));
        reporter->done = true;
    } else if (action == "cancel") {
        manager->cancel(id);
    } else {
        manager->restart(id);
    }
    if (!reporter->done) {
        std::cerr << "zmplay downloads: " << id << " is not "
                  << (action == "pause" ? "downloading" : "there") << "\n";
        return 1;
    }
    return 0;
}

int runDownloads(const std::vector<std::string>& arguments) {
    if (arguments.size() == 1 && arguments[0] == "--wait") {
        return act("--wait", "");
    }
    if (arguments.size() == 2 && (arguments[0] == "pause" || arguments[0] == "resume" ||
                                  arguments[0] == "cancel" || arguments[0] == "restart")) {
        return act(arguments[0], arguments[1]);
    }
    if (arguments.empty()) {
        return list(false);
    }
    if (arguments.size() == 1 && arguments[0] == "--json") {
        return list(true);
    }
    if (arguments.size() == 2 && arguments[0] == "delete") {
        return remove(arguments[1]);
    }
    std::cerr << "usage: zmplay " << usage << "\n";
    return 2;
}

const Command::Registration registration{Command{
    "downloads", usage,
    "list the offline downloads of the application home (ZM_HOME), delete one, act on one, or "
    "run them until none is left (--wait)",
    runDownloads}};

}  // namespace
}  // namespace zarvo::zmplay::downloads_command
