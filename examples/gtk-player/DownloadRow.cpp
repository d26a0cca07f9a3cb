#include "DownloadRow.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "GtkGlue.h"

namespace gtkplayer {

using zarvo::ZMOfflineDownloadState;

DownloadRow::DownloadRow(std::shared_ptr<zarvo::ZMOfflineDownload> download, Actions actions)
    : download_(std::move(download)),
      actions_(std::move(actions)),
      box_(gtk_box_new(GTK_ORIENTATION_VERTICAL, 4)),
      progress_(gtk_progress_bar_new()),
      error_(gtk_label_new(nullptr)) {
    // The row is owned by this object, not by the container it is packed into.
    g_object_ref_sink(box_);
    gtk_container_set_border_width(GTK_CONTAINER(box_), 6);

    GtkWidget* title = gtk_label_new(download_->title().c_str());
    gtk_label_set_ellipsize(GTK_LABEL(title), PANGO_ELLIPSIZE_MIDDLE);
    gtk_widget_set_tooltip_text(title, download_->url().absoluteString().c_str());
    gtk_widget_set_halign(title, GTK_ALIGN_START);
    gtk_progress_bar_set_show_text(GTK_PROGRESS_BAR(progress_), TRUE);
    gtk_label_set_line_wrap(GTK_LABEL(error_), TRUE);
    gtk_widget_set_halign(error_, GTK_ALIGN_START);
    gtk_widget_set_no_show_all(error_, TRUE);

    GtkWidget* buttons = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 4);
    pause_ = addButton(buttons, "Pause", [this] { actions_.pause(); });
    resume_ = addButton(buttons, "Resume", [this] { actions_.resume(); });
    play_ = addButton(buttons, "Play", [this] { actions_.play(); });
    remove_ = addButton(buttons, "Cancel", [this] { actions_.remove(); });

    gtk_box_pack_start(GTK_BOX(box_), title, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), progress_, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), error_, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), buttons, FALSE, FALSE, 0);
    gtk_widget_show_all(box_);
    refresh(download_);
}

DownloadRow::~DownloadRow() {
    gtk_widget_destroy(box_);
    g_object_unref(box_);
}

GtkWidget* DownloadRow::addButton(GtkWidget* buttons, const char* label,
                                  std::function<void()> action) {
    GtkWidget* button = gtk_button_new_with_label(label);
    connectSignal<void(GtkButton*)>(button, "clicked",
                                    [action = std::move(action)](GtkButton*) { action(); });
    // refresh() decides which buttons are shown.
    gtk_widget_set_no_show_all(button, TRUE);
    gtk_box_pack_start(GTK_BOX(buttons), button, FALSE, FALSE, 0);
    return button;
}

void DownloadRow::refresh(std::shared_ptr<zarvo::ZMOfflineDownload> download) {
    download_ = std::move(download);
    const auto state = download_->state();
    const double progress = std::clamp(download_->progress(), 0.0, 1.0);
    const std::string text = std::to_string(std::lround(progress * 100)) + "% · " + name(state);
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(progress_), progress);
    gtk_progress_bar_set_text(GTK_PROGRESS_BAR(progress_), text.c_str());

    const bool running =
        state == ZMOfflineDownloadState::waiting || state == ZMOfflineDownloadState::downloading;
    gtk_widget_set_visible(pause_, running);
    // Only a download that has begun can be paused.
    gtk_widget_set_sensitive(pause_, state == ZMOfflineDownloadState::downloading);
    gtk_widget_set_visible(resume_, state == ZMOfflineDownloadState::paused);
    gtk_widget_set_visible(play_, download_->isCompleted());
    gtk_widget_set_visible(remove_, TRUE);
    // Cancelling a finished download deletes it.
    gtk_button_set_label(GTK_BUTTON(remove_), download_->isCompleted() ? "Delete" : "Cancel");
    if (state != ZMOfflineDownloadState::failed) {
        gtk_widget_hide(error_);
    }
}

void DownloadRow::showError(const std::string& message) {
    gtk_label_set_text(GTK_LABEL(error_), message.c_str());
    gtk_widget_show(error_);
}

}  // namespace gtkplayer
