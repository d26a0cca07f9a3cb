#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <memory>
#include <string>
#include <zarvo/offline/ZMOfflineDownload.h>

namespace gtkplayer {

// One download in the downloads pane: its title, a progress bar with its state, and the
// buttons its state allows. The row's widget goes with the row.
class DownloadRow {
public:
    struct Actions {
        std::function<void()> pause;
        std::function<void()> resume;
        std::function<void()> remove;
        std::function<void()> play;
    };

    DownloadRow(std::shared_ptr<zarvo::ZMOfflineDownload> download, Actions actions);
    ~DownloadRow();
    DownloadRow(const DownloadRow&) = delete;
    DownloadRow& operator=(const DownloadRow&) = delete;

    GtkWidget* widget() const { return box_; }
    const std::shared_ptr<zarvo::ZMOfflineDownload>& download() const { return download_; }

    // Shows the download's state and progress as they are now.
    void refresh(std::shared_ptr<zarvo::ZMOfflineDownload> download);
    void showError(const std::string& message);

private:
    GtkWidget* addButton(GtkWidget* buttons, const char* label, std::function<void()> action);

    std::shared_ptr<zarvo::ZMOfflineDownload> download_;
    Actions actions_;
    GtkWidget* box_;
    GtkWidget* progress_;
    GtkWidget* error_;
    GtkWidget* pause_;
    GtkWidget* resume_;
    GtkWidget* remove_;
    GtkWidget* play_;
};

}  // namespace gtkplayer
