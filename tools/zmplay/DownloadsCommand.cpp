// zmplay downloads: lists the offline downloads of the application home, or deletes one.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/UserDefaults.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay {
namespace {

constexpr const char* usage = "downloads [--json] | delete ID";

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
    if (!text || !ZMOfflineDownload::decodeList(*text)) {
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
            array.push_back(download->toJson());
        }
        std::cout << array.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
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

int runDownloads(const std::vector<std::string>& arguments) {
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
    "list the offline downloads of the application home (ZM_HOME), or delete one", runDownloads}};

}  // namespace
}  // namespace zarvo::zmplay
