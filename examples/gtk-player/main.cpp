// zm-gtk-player: a GTK 3 desktop player on ZarvoMediaPlayer's public API.
#include <cmath>
#include <gtk/gtk.h>
#include <iostream>
#include <string>
#include <variant>
#include <vector>

#include "Options.h"
#include "PlayerWindow.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && (arguments[0] == "--help" || arguments[0] == "-h")) {
        std::cout << gtkplayer::usage << "\n";
        return 0;
    }
    // The SDK shows video in an X11 window of its own inside ours.
    gdk_set_allowed_backends("x11");
    if (!gtk_init_check(&argc, &argv)) {
        std::cerr << "zm-gtk-player: cannot open an X11 display (is DISPLAY set?)\n";
        return 1;
    }
    auto parsed = gtkplayer::parseOptions({argv + 1, argv + argc});
    if (auto* problem = std::get_if<std::string>(&parsed)) {
        std::cerr << "zm-gtk-player: " << *problem << "\n" << gtkplayer::usage << "\n";
        return 2;
    }
    const auto& options = std::get<gtkplayer::Options>(parsed);

    // The SDK calls back on GLib's default main context, which gtk_main() runs: the
    // application needs no threads of its own.
    gtkplayer::PlayerWindow window(options.drm);
    window.show();
    if (options.url) {
        window.open(*options.url);
    }
    if (options.quitAfterSeconds) {
        const auto milliseconds = static_cast<guint>(std::lround(*options.quitAfterSeconds * 1000));
        g_timeout_add(
            milliseconds,
            [](gpointer) -> gboolean {
                gtk_main_quit();
                return G_SOURCE_REMOVE;
            },
            nullptr);
    }
    gtk_main();
    return 0;
}
