#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <optional>
#include <vector>
#include <zarvo/player/ZMMediaOption.h>

namespace gtkplayer {

// A drop-down of the current item's audio or subtitle options. Choosing an entry passes its
// asset option to `select`; the "off" entry, when the menu has one, passes none.
class TrackMenu {
public:
    using Select = std::function<void(const std::optional<zarvo::MediaSelectionOption>&)>;

    // `offTitle`: the title of an entry that selects nothing (subtitles off), or none.
    TrackMenu(const char* offTitle, Select select);
    TrackMenu(const TrackMenu&) = delete;
    TrackMenu& operator=(const TrackMenu&) = delete;

    GtkWidget* widget() const { return combo_; }

    // Lists `options` with `current` chosen.
    void show(const std::vector<zarvo::ZMMediaOption>& options,
              const std::optional<zarvo::MediaSelectionOption>& current);
    void clear();

private:
    void append(const char* title, std::optional<zarvo::MediaSelectionOption> option);

    const char* offTitle_;
    Select select_;
    GtkWidget* combo_;
    // The asset option of each entry, in the combo box's order.
    std::vector<std::optional<zarvo::MediaSelectionOption>> entries_;
    // Set while the entries are rebuilt, whose "changed" signals are not the user's.
    bool filling_ = false;
};

}  // namespace gtkplayer
