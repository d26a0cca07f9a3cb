#include "SeekBar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>

#include "GtkGlue.h"

namespace gtkplayer {

namespace {

// "m:ss" or "h:mm:ss", of whole seconds.
std::string clockText(double seconds) {
    const auto whole = static_cast<long long>(std::max(0.0, seconds));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    }
    return text;
}

}  // namespace

SeekBar::SeekBar(Seek seek)
    : seek_(std::move(seek)),
      box_(gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6)),
      scale_(gtk_scale_new_with_range(GTK_ORIENTATION_HORIZONTAL, 0, 1, 1)),
      position_(gtk_label_new(nullptr)),
      duration_(gtk_label_new(nullptr)) {
    gtk_scale_set_draw_value(GTK_SCALE(scale_), FALSE);
    gtk_widget_set_hexpand(scale_, TRUE);
    gtk_label_set_width_chars(GTK_LABEL(position_), 7);
    gtk_label_set_width_chars(GTK_LABEL(duration_), 7);
    gtk_box_pack_start(GTK_BOX(box_), position_, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box_), scale_, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(box_), duration_, FALSE, FALSE, 0);

    // "change-value" comes from the user only, never from gtk_range_set_value().
    connectSignal<gboolean(GtkRange*, GtkScrollType, gdouble)>(
        scale_, "change-value", [this](GtkRange*, GtkScrollType, gdouble value) {
            userMoved(value);
            return FALSE;
        });
    using ButtonHandler = gboolean(GtkWidget*, GdkEventButton*);
    connectSignal<ButtonHandler>(scale_, "button-press-event", [this](GtkWidget*, GdkEventButton*) {
        held_ = true;
        return FALSE;
    });
    connectSignal<ButtonHandler>(scale_, "button-release-event",
                                 [this](GtkWidget*, GdkEventButton*) {
                                     held_ = false;
                                     return FALSE;
                                 });
    reset();
}

void SeekBar::showTime(double current, double duration) {
    const bool live = !std::isfinite(duration);
    gtk_widget_set_sensitive(scale_, !live && duration > 0);
    gtk_label_set_text(GTK_LABEL(duration_),
                       live ? "LIVE" : clockText(std::round(duration)).c_str());
    if (live) {
        gtk_label_set_text(GTK_LABEL(position_), "");
        return;
    }
    if (held_ || seeking_) {
        return;
    }
    if (duration != shownDuration_) {
        shownDuration_ = duration;
        gtk_range_set_range(GTK_RANGE(scale_), 0, std::max(duration, 1.0));
    }
    gtk_range_set_value(GTK_RANGE(scale_), current);
    gtk_label_set_text(GTK_LABEL(position_), clockText(current).c_str());
}

void SeekBar::reset() {
    // The completions of seeks asked for until now are ignored.
    self_ = std::make_shared<SeekBar*>(this);
    held_ = false;
    seeking_ = false;
    nextSeek_.reset();
    shownDuration_ = 0;
    gtk_range_set_range(GTK_RANGE(scale_), 0, 1);
    gtk_range_set_value(GTK_RANGE(scale_), 0);
    gtk_widget_set_sensitive(scale_, FALSE);
    gtk_label_set_text(GTK_LABEL(position_), clockText(0).c_str());
    gtk_label_set_text(GTK_LABEL(duration_), clockText(0).c_str());
}

void SeekBar::userMoved(double seconds) {
    seconds = std::clamp(seconds, 0.0, shownDuration_);
    gtk_label_set_text(GTK_LABEL(position_), clockText(seconds).c_str());
    if (seeking_) {
        nextSeek_ = seconds;
    } else {
        startSeek(seconds);
    }
}

void SeekBar::startSeek(double seconds) {
    seeking_ = true;
    seek_(seconds, [weak = std::weak_ptr<SeekBar*>(self_)] {
        if (auto self = weak.lock()) {
            (*self)->seekEnded();
        }
    });
}

void SeekBar::seekEnded() {
    if (auto next = std::exchange(nextSeek_, std::nullopt)) {
        startSeek(*next);
    } else {
        seeking_ = false;
    }
}

}  // namespace gtkplayer
