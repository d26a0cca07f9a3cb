#pragma once

#include <clocale>
#include <mpv/client.h>
#include <optional>
#include <string>

#include "zarvo/platform/ProcessInfo.h"

// mpv's player through libmpv, a peer for first-frame times: no video or audio output
// (vo=null, ao=null: the null outputs still keep real time), no configuration files and no
// youtube-dl probe, one handle for every item it plays.
//
// The first frame is the PLAYBACK_RESTART event that follows the start of a file. mpv sends it
// once the first decoded frame has been handed to the video output and the output has drawn
// it (mpv waits for that before it counts video as ready) and the audio is ready to start in
// step: the first moment mpv itself counts a picture as shown. The VIDEO_RECONFIG event comes
// earlier, before the frame is queued, but only when the output's format changes, so not for
// a second item of the same format in the same handle; video-params changes once the decoder
// made a frame, before it reaches the output.
class LibmpvPlayer {
public:
    LibmpvPlayer() {
        // libmpv refuses to start unless numbers are written with a decimal point.
        std::setlocale(LC_NUMERIC, "C");
        handle_ = mpv_create();
        if (handle_ == nullptr) {
            return;
        }
        for (auto [name, value] : {std::pair{"vo", "null"},
                                   {"ao", "null"},
                                   {"ytdl", "no"},
                                   {"config", "no"},
                                   {"terminal", "no"},
                                   {"idle", "yes"}}) {
            mpv_set_option_string(handle_, name, value);
        }
        if (mpv_initialize(handle_) < 0) {
            mpv_terminate_destroy(handle_);
            handle_ = nullptr;
        }
    }
    ~LibmpvPlayer() {
        if (handle_ != nullptr) {
            mpv_terminate_destroy(handle_);
        }
    }
    LibmpvPlayer(const LibmpvPlayer&) = delete;
    LibmpvPlayer& operator=(const LibmpvPlayer&) = delete;

    // Plays `url` from its start until the first frame is shown, then stops; the system uptime
    // at which it was shown, or nothing when the item failed or took past `deadlineSeconds`.
    std::optional<double> firstFrame(const std::string& url, double deadlineSeconds) {
        if (handle_ == nullptr) {
            return std::nullopt;
        }
        const char* load[] = {"loadfile", url.c_str(), "replace", nullptr};
        if (mpv_command(handle_, load) < 0) {
            return std::nullopt;
        }
        const double deadline = zarvo::ProcessInfo::systemUptime() + deadlineSeconds;
        std::optional<double> shownAt;
        bool started = false;
        bool ended = false;
        while (!shownAt && !ended) {
            const double left = deadline - zarvo::ProcessInfo::systemUptime();
            if (left <= 0) {
                break;
            }
            const mpv_event* event = mpv_wait_event(handle_, left);
            if (event->event_id == MPV_EVENT_START_FILE) {
                started = true;
            } else if (event->event_id == MPV_EVENT_PLAYBACK_RESTART && started) {
                shownAt = zarvo::ProcessInfo::systemUptime();
            } else if (event->event_id == MPV_EVENT_END_FILE && started) {
                ended = true;
            }
        }
        if (!ended) {
            stop();
        }
        return shownAt;
    }

private:
    // Stops the item and waits for its end, so that none of its events reach the next one.
    void stop() {
        const char* command[] = {"stop", nullptr};
        if (mpv_command(handle_, command) < 0) {
            return;
        }
        for (;;) {
            const mpv_event* event = mpv_wait_event(handle_, 10);
            if (event->event_id == MPV_EVENT_END_FILE || event->event_id == MPV_EVENT_NONE) {
                return;
            }
        }
    }

    mpv_handle* handle_ = nullptr;
};
