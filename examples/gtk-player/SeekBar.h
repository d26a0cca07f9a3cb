#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <memory>
#include <optional>

namespace gtkplayer {

// The position slider with the position and duration beside it. It follows the player's time
// unless the user holds it or a seek is under way, and seeks as it is dragged: one seek at a
// time, the latest position asked for next.
class SeekBar {
public:
    // Starts a seek to `seconds` and calls `done` when it ends, however it ends.
    using Seek = std::function<void(double seconds, std::function<void()> done)>;

    explicit SeekBar(Seek seek);
    SeekBar(const SeekBar&) = delete;
    SeekBar& operator=(const SeekBar&) = delete;

    GtkWidget* widget() const { return box_; }

    // The player's time. A stream without a finite duration is live: it shows no position and
    // its slider is off.
    void showTime(double current, double duration);
    // No item, or a new one: back to the start, nothing pending.
    void reset();

private:
    void userMoved(double seconds);
    void startSeek(double seconds);
    void seekEnded();

    Seek seek_;
    GtkWidget* box_;
    GtkWidget* scale_;
    GtkWidget* position_;
    GtkWidget* duration_;
    bool held_ = false;
    bool seeking_ = false;
    std::optional<double> nextSeek_;
    double shownDuration_ = 0;
    // Seek completions hold this weakly: the player may end a seek after the bar is gone, or
    // after reset(), which makes a new one.
    std::shared_ptr<SeekBar*> self_;
};

}  // namespace gtkplayer
