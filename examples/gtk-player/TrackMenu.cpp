#include "TrackMenu.h"

#include <variant>

#include "GtkGlue.h"

namespace gtkplayer {

TrackMenu::TrackMenu(const char* offTitle, Select select)
    : offTitle_(offTitle), select_(std::move(select)), combo_(gtk_combo_box_text_new()) {
    connectSignal<void(GtkComboBox*)>(combo_, "changed", [this](GtkComboBox* combo) {
        const int active = gtk_combo_box_get_active(combo);
        if (!filling_ && active >= 0) {
            select_(entries_[static_cast<std::size_t>(active)]);
        }
    });
    clear();
}

void TrackMenu::show(const std::vector<zarvo::ZMMediaOption>& options,
                     const std::optional<zarvo::MediaSelectionOption>& current) {
    filling_ = true;
    gtk_combo_box_text_remove_all(GTK_COMBO_BOX_TEXT(combo_));
    entries_.clear();
    if (offTitle_ != nullptr && !options.empty()) {
        append(offTitle_, std::nullopt);
    }
    for (const auto& option : options) {
        // The player lists the asset's own renditions; side-loaded subtitle files are the
        // host's to show, and this player has none.
        const auto* selection =
            std::get_if<zarvo::ZMMediaOptionType::MediaSelection>(&option.type().value());
        if (selection != nullptr) {
            append(option.title().c_str(), selection->option);
        }
    }
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i] == current) {
            gtk_combo_box_set_active(GTK_COMBO_BOX(combo_), static_cast<int>(i));
        }
    }
    gtk_widget_set_sensitive(combo_, entries_.size() > 1);
    filling_ = false;
}

void TrackMenu::clear() {
    show({}, std::nullopt);
}

void TrackMenu::append(const char* title, std::optional<zarvo::MediaSelectionOption> option) {
    gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(combo_), title);
    entries_.push_back(std::move(option));
}

}  // namespace gtkplayer
