#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <zarvo/offline/ZMOfflineManager.h>
#include <zarvo/platform/Url.h>
#include <zarvo/source/ZMFairPlayUrls.h>

#include "DownloadEvents.h"
#include "DownloadRow.h"

namespace gtkplayer {

// The downloads of the application home, those of earlier runs included: a button that
// downloads the open stream, and a row per download to pause, resume, cancel or play it.
class DownloadsPane {
public:
    using Play = std::function<void(std::shared_ptr<zarvo::ZMOfflineDownload>)>;

    // `drm`: where the keys of protected streams come from; `play` plays a finished download.
    DownloadsPane(std::optional<zarvo::ZMFairPlayUrls> drm, Play play);
    DownloadsPane(const DownloadsPane&) = delete;
    DownloadsPane& operator=(const DownloadsPane&) = delete;

    GtkWidget* widget() const { return box_; }

    // The stream the download button downloads; none (an offline item) disables it.
    void setStream(std::optional<zarvo::Url> url);

private:
    void startDownload();
    void started(const std::shared_ptr<zarvo::ZMOfflineDownload>& download,
                 const std::optional<zarvo::Error>& error);
    DownloadRow& rowFor(const std::shared_ptr<zarvo::ZMOfflineDownload>& download);
    void showNote(const std::string& text);

    const std::optional<zarvo::ZMFairPlayUrls> drm_;
    Play play_;
    std::optional<zarvo::Url> stream_;
    std::shared_ptr<zarvo::ZMOfflineManager> manager_;
    std::shared_ptr<DownloadEvents> events_ = std::make_shared<DownloadEvents>();
    GtkWidget* box_;
    GtkWidget* downloadButton_;
    GtkWidget* note_;
    GtkWidget* list_;
    std::map<std::string, std::unique_ptr<DownloadRow>> rowsById_;
    std::set<std::string> cancelled_;
    // The download button's completion holds this weakly: it may come after the pane is gone.
    std::shared_ptr<DownloadsPane*> self_ = std::make_shared<DownloadsPane*>(this);
};

}  // namespace gtkplayer
