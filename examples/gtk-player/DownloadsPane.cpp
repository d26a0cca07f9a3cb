#include "DownloadsPane.h"

#include <zarvo/offline/FPDownloadsStore.h>

#include "GtkGlue.h"

namespace gtkplayer {

DownloadsPane::DownloadsPane(std::optional<zarvo::ZMFairPlayUrls> drm, Play play)
    : drm_(std::move(drm)),
      play_(std::move(play)),
      // Takes back the downloads an earlier run left unfinished.
      manager_(zarvo::ZMOfflineManager::make(std::make_shared<zarvo::FPDownloadsStore>())),
      box_(gtk_box_new(GTK_ORIENTATION_VERTICAL, 6)),
      downloadButton_(gtk_button_new_with_label("Download")),
      note_(gtk_label_new(nullptr)),
      list_(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0)) {
    events_->changed = [this](const auto& download) {
        // News of a cancelled download may still be on its way.
        if (!cancelled_.contains(download->id())) {
            rowFor(download).refresh(download);
        }
    };
    events_->failed = [this](const auto& download, const zarvo::Error& error) {
        auto& row = rowFor(download);
        row.refresh(download);
        row.showError(error.localizedDescription());
    };
    // Cancelling is reported from inside the row's button handler: the row goes afterwards.
    events_->removed = [this](const auto& download) {
        cancelled_.insert(download->id());
        runWhenIdle([weak = std::weak_ptr(self_), id = download->id()] {
            if (auto self = weak.lock()) {
                (*self)->rowsById_.erase(id);
            }
        });
    };
    manager_->setDelegate(events_);

    GtkWidget* header = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    GtkWidget* title = gtk_label_new(nullptr);
    gtk_label_set_markup(GTK_LABEL(title), "<b>Downloads</b>");
    gtk_box_pack_start(GTK_BOX(header), title, FALSE, FALSE, 0);
    gtk_box_pack_end(GTK_BOX(header), downloadButton_, FALSE, FALSE, 0);
    gtk_widget_set_tooltip_text(downloadButton_, "Download the open stream for offline playback");
    connectSignal<void(GtkButton*)>(downloadButton_, "clicked",
                                    [this](GtkButton*) { startDownload(); });
    gtk_label_set_line_wrap(GTK_LABEL(note_), TRUE);
    gtk_widget_set_no_show_all(note_, TRUE);
    gtk_widget_set_halign(note_, GTK_ALIGN_START);

    GtkWidget* scroller = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                   GTK_POLICY_AUTOMATIC);
    gtk_container_add(GTK_CONTAINER(scroller), list_);
    gtk_container_set_border_width(GTK_CONTAINER(box_), 6);
    gtk_widget_set_size_request(box_, 300, -1);
    gtk_box_pack_start(GTK_BOX(box_), header, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), note_, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), scroller, TRUE, TRUE, 0);

    for (const auto& download : manager_->getDownloads()) {
        rowFor(download);
    }
    setStream(std::nullopt);
}

void DownloadsPane::setStream(std::optional<zarvo::Url> url) {
    stream_ = std::move(url);
    gtk_widget_set_sensitive(downloadButton_, stream_.has_value());
}

void DownloadsPane::startDownload() {
    if (!stream_) {
        return;
    }
    // The manager first asks the server for the stream; the button waits for its answer.
    gtk_widget_set_sensitive(downloadButton_, FALSE);
    showNote("");
    std::string title = stream_->path();
    if (title.starts_with('/')) {
        title.erase(0, 1);
    }
    std::optional<zarvo::Url> cert;
    std::optional<zarvo::Url> license;
    if (drm_) {
        cert = drm_->serverCertUrl();
        license = drm_->licenseUrl();
    }
    // Called on one of the SDK's own threads.
    auto completion = [weak = std::weak_ptr(self_)](const auto& download, const auto& error) {
        runWhenIdle([weak, download, error] {
            if (auto self = weak.lock()) {
                (*self)->started(download, error);
            }
        });
    };
    // No choice of renditions, no bitrate floor, no extra header fields: the SDK's defaults.
    manager_->startDownload(title, *stream_, cert, license, std::nullopt, std::nullopt,
                            std::nullopt, {}, completion);
}

void DownloadsPane::started(const std::shared_ptr<zarvo::ZMOfflineDownload>& download,
                            const std::optional<zarvo::Error>& error) {
    gtk_widget_set_sensitive(downloadButton_, stream_.has_value());
    if (error || !download) {
        showNote("The download did not start: " +
                 (error ? error->localizedDescription() : std::string("no answer")));
        return;
    }
    rowFor(download).refresh(download);
}

DownloadRow& DownloadsPane::rowFor(const std::shared_ptr<zarvo::ZMOfflineDownload>& download) {
    auto& row = rowsById_[download->id()];
    if (!row) {
        const std::string id = download->id();
        row = std::make_unique<DownloadRow>(
            download, DownloadRow::Actions{
                          .pause = [this, id] { manager_->pause(id); },
                          .resume =
                              [this, id] {
                                  // Resuming is not reported to the delegate.
                                  manager_->resume(id);
                                  auto& resumed = rowsById_.at(id);
                                  resumed->refresh(resumed->download());
                              },
                          .remove = [this, id] { manager_->cancel(id); },
                          .play = [this, id] { play_(rowsById_.at(id)->download()); },
                      });
        gtk_box_pack_start(GTK_BOX(list_), row->widget(), FALSE, FALSE, 0);
    }
    return *row;
}

void DownloadsPane::showNote(const std::string& text) {
    gtk_label_set_text(GTK_LABEL(note_), text.c_str());
    gtk_widget_set_visible(note_, !text.empty());
}

}  // namespace gtkplayer
