#pragma once

#include <gtk/gtk.h>
#include <memory>
#include <optional>
#include <string>
#include <zarvo/player/ZMPlayer.h>
#include <zarvo/source/ZMFairPlayUrls.h>
#include <zarvo/source/ZMPlaybackSource.h>

#include "DownloadsPane.h"
#include "GtkGlue.h"
#include "PlayerEvents.h"
#include "SeekBar.h"
#include "TrackMenu.h"
#include "VideoArea.h"

namespace gtkplayer {

// The application's window: an address bar, the video with the downloads beside it, and the
// playback controls under it. Closing it ends gtk_main().
class PlayerWindow {
public:
    // `drm`: where the keys of protected streams come from.
    explicit PlayerWindow(std::optional<zarvo::ZMFairPlayUrls> drm);
    ~PlayerWindow();
    PlayerWindow(const PlayerWindow&) = delete;
    PlayerWindow& operator=(const PlayerWindow&) = delete;

    void show();
    // Plays the stream at `url` from its start.
    void open(const zarvo::Url& url);

private:
    GtkWidget* makeAddressBar();
    GtkWidget* makeControls();
    void playOffline(const std::shared_ptr<zarvo::ZMOfflineDownload>& download);
    void openTypedAddress();
    void openSource(std::shared_ptr<zarvo::ZMPlaybackSource> source, const std::string& title);
    void togglePlayback();
    void seek(double seconds, std::function<void()> done);
    void itemChanged(zarvo::ZMPlayerStatus status);
    void playbackChanged(zarvo::ZMPlaybackStatus status);
    void showStatus(const std::string& text);

    const std::optional<zarvo::ZMFairPlayUrls> drm_;
    std::shared_ptr<zarvo::ZMPlayer> player_ = zarvo::ZMPlayer::make();
    std::shared_ptr<PlayerEvents> events_ = std::make_shared<PlayerEvents>();
    VideoArea video_;
    SeekBar seekBar_;
    TrackMenu audioMenu_;
    TrackMenu subtitleMenu_;
    DownloadsPane downloads_;
    GtkWidget* address_ = nullptr;
    GtkWidget* playButton_ = nullptr;
    GtkWidget* status_ = nullptr;
    // The current item failed; its error stays shown until another is opened.
    bool failed_ = false;
    // Declared last, so destroyed first: its widgets' handlers call into the members above.
    WidgetPtr window_;
};

}  // namespace gtkplayer
