#include "PlayerWindow.h"

#include <cmath>
#include <utility>
#include <zarvo/offline/ZMOfflinePlaybackSource.h>
#include <zarvo/source/ZMPlaybackSourceOptions.h>

#include "Options.h"

namespace gtkplayer {

using zarvo::MediaCharacteristic;

PlayerWindow::PlayerWindow(std::optional<zarvo::ZMFairPlayUrls> drm)
    : drm_(std::move(drm)),
      video_(player_),
      seekBar_([this](double seconds, std::function<void()> done) { seek(seconds, done); }),
      audioMenu_(nullptr,
                 [this](const auto& option) {
                     player_->selectOptionGroup(option, MediaCharacteristic::audible());
                 }),
      subtitleMenu_("Off",
                    [this](const auto& option) {
                        player_->selectOptionGroup(option, MediaCharacteristic::legible());
                    }),
      downloads_(drm_, [this](const auto& download) { playOffline(download); }),
      window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)) {
    events_->timeChanged = [this](double current, double duration) {
        // A failed item stays current, without a duration.
        if (!failed_) {
            seekBar_.showTime(current, duration);
        }
    };
    events_->itemChanged = [this](zarvo::ZMPlayerStatus status) {
        itemChanged(status);
    };
    events_->playbackChanged = [this](zarvo::ZMPlaybackStatus status) {
        playbackChanged(status);
    };
    events_->failed = [this](const zarvo::Error& error) {
        failed_ = true;
        showStatus("Error: " + error.localizedDescription());
    };
    player_->setDelegate(events_);

    GtkWidget* player = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_box_pack_start(GTK_BOX(player), video_.widget(), TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(player), makeControls(), FALSE, FALSE, 0);
    GtkWidget* sides = gtk_paned_new(GTK_ORIENTATION_HORIZONTAL);
    gtk_paned_pack1(GTK_PANED(sides), player, TRUE, FALSE);
    gtk_paned_pack2(GTK_PANED(sides), downloads_.widget(), FALSE, FALSE);

    status_ = gtk_label_new(nullptr);
    gtk_widget_set_halign(status_, GTK_ALIGN_START);
    gtk_label_set_ellipsize(GTK_LABEL(status_), PANGO_ELLIPSIZE_END);

    GtkWidget* layout = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_container_set_border_width(GTK_CONTAINER(layout), 6);
    gtk_box_pack_start(GTK_BOX(layout), makeAddressBar(), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(layout), sides, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(layout), status_, FALSE, FALSE, 0);

    GtkWindow* window = GTK_WINDOW(window_.get());
    gtk_window_set_title(window, "ZarvoMediaPlayer");
    gtk_window_set_default_size(window, 1280, 720);
    gtk_container_add(GTK_CONTAINER(window), layout);
    // The window is this object's to destroy: closing it only ends the main loop.
    connectSignal<gboolean(GtkWidget*, GdkEvent*)>(window, "delete-event",
                                                   [](GtkWidget*, GdkEvent*) {
                                                       gtk_main_quit();
                                                       return TRUE;
                                                   });
}

PlayerWindow::~PlayerWindow() {
    player_->setDelegate({});
    player_->removeCurrentSource();
}

GtkWidget* PlayerWindow::makeAddressBar() {
    address_ = gtk_entry_new();
    gtk_entry_set_placeholder_text(GTK_ENTRY(address_), "https://example.com/stream/master.m3u8");
    connectSignal<void(GtkEntry*)>(address_, "activate", [this](GtkEntry*) { openTypedAddress(); });
    GtkWidget* open = gtk_button_new_with_label("Open");
    connectSignal<void(GtkButton*)>(open, "clicked", [this](GtkButton*) { openTypedAddress(); });

    GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    gtk_box_pack_start(GTK_BOX(bar), address_, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(bar), open, FALSE, FALSE, 0);
    return bar;
}

GtkWidget* PlayerWindow::makeControls() {
    playButton_ = gtk_button_new_with_label("Play");
    gtk_widget_set_sensitive(playButton_, FALSE);
    connectSignal<void(GtkButton*)>(playButton_, "clicked",
                                    [this](GtkButton*) { togglePlayback(); });

    GtkWidget* controls = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    gtk_box_pack_start(GTK_BOX(controls), playButton_, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(controls), seekBar_.widget(), TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(controls), gtk_label_new("Audio"), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(controls), audioMenu_.widget(), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(controls), gtk_label_new("Subtitles"), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(controls), subtitleMenu_.widget(), FALSE, FALSE, 0);
    return controls;
}

void PlayerWindow::show() {
    gtk_widget_show_all(window_.get());
}

void PlayerWindow::open(const zarvo::Url& url) {
    gtk_entry_set_text(GTK_ENTRY(address_), url.absoluteString().c_str());
    // Not live as far as the source knows: times are the item's own, from its start, and a
    // live stream shows as one without a duration.
    zarvo::ZMPlaybackSourceOptions options(false);
    if (drm_) {
        options.setDrm(*drm_);
    }
    openSource(std::make_shared<zarvo::ZMPlaybackSource>(url, options), url.absoluteString());
    downloads_.setStream(url);
}

void PlayerWindow::playOffline(const std::shared_ptr<zarvo::ZMOfflineDownload>& download) {
    openSource(std::make_shared<zarvo::ZMOfflinePlaybackSource>(download),
               download->title() + " (offline)");
    downloads_.setStream(std::nullopt);
}

void PlayerWindow::openTypedAddress() {
    const std::string text = gtk_entry_get_text(GTK_ENTRY(address_));
    if (auto url = streamAddress(text)) {
        open(*url);
    } else {
        showStatus("Not an http, https or file URL: " + text);
    }
}

void PlayerWindow::openSource(std::shared_ptr<zarvo::ZMPlaybackSource> source,
                              const std::string& title) {
    seekBar_.reset();
    audioMenu_.clear();
    subtitleMenu_.clear();
    gtk_window_set_title(GTK_WINDOW(window_.get()), (title + " - ZarvoMediaPlayer").c_str());
    failed_ = false;
    showStatus("Opening " + title);
    gtk_widget_set_sensitive(playButton_, TRUE);
    player_->open(std::move(source), true);
}

void PlayerWindow::togglePlayback() {
    if (!player_->isPaused()) {
        player_->pause();
        return;
    }
    // Play at the end of a stream starts it again.
    const double duration = player_->duration();
    if (std::isfinite(duration) && duration > 0 && player_->currentTime() >= duration - 0.5) {
        player_->seek(0, 600, zarvo::MediaTime::zero(), zarvo::MediaTime::zero());
    }
    player_->play();
}

void PlayerWindow::seek(double seconds, std::function<void()> done) {
    player_->seek(seconds, 600, zarvo::MediaTime::zero(), zarvo::MediaTime::zero(),
                  [done = std::move(done)](bool) { done(); });
}

void PlayerWindow::itemChanged(zarvo::ZMPlayerStatus status) {
    // Also called when the selected audio or subtitles change.
    if (status == zarvo::ZMPlayerStatus::readyToPlay) {
        audioMenu_.show(player_->audioOptions(), player_->currentAudioOption());
        subtitleMenu_.show(player_->subtitleOptions(), player_->currentSubtitleOption());
    } else if (status == zarvo::ZMPlayerStatus::failed) {
        if (!std::exchange(failed_, true)) {
            showStatus("The stream cannot be played");
        }
        seekBar_.reset();
        audioMenu_.clear();
        subtitleMenu_.clear();
        gtk_widget_set_sensitive(playButton_, FALSE);
        downloads_.setStream(std::nullopt);
    }
}

void PlayerWindow::playbackChanged(zarvo::ZMPlaybackStatus status) {
    const bool paused = status == zarvo::ZMPlaybackStatus::paused;
    gtk_button_set_label(GTK_BUTTON(playButton_), paused ? "Play" : "Pause");
    if (failed_) {
        return;  // the error stays in view
    }
    switch (status) {
        case zarvo::ZMPlaybackStatus::paused:
            showStatus("Paused");
            break;
        case zarvo::ZMPlaybackStatus::waiting:
            showStatus("Buffering...");
            break;
        case zarvo::ZMPlaybackStatus::playing:
            showStatus("Playing");
            break;
    }
}

void PlayerWindow::showStatus(const std::string& text) {
    gtk_label_set_text(GTK_LABEL(status_), text.c_str());
}

}  // namespace gtkplayer
