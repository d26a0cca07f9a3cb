#pragma once

// Small helpers between GTK's C API and C++: signal handlers as lambdas, a top-level widget
// owned by a C++ object, and work handed to the main loop.
#include <functional>
#include <gtk/gtk.h>
#include <memory>
#include <utility>

namespace gtkplayer {

template <typename Signature>
struct SignalHandler;

template <typename R, typename... Args>
struct SignalHandler<R(Args...)> {
    using Function = std::function<R(Args...)>;

    static R call(Args... args, gpointer data) { return (*static_cast<Function*>(data))(args...); }
    static void release(gpointer data, GClosure*) { delete static_cast<Function*>(data); }
};

// Connects a C++ callable to a GObject signal. `Signature` is the handler's C signature
// without the trailing user-data pointer, for example void(GtkButton*). The connection owns
// the callable and deletes it when the handler is disconnected or the object is finalised.
template <typename Signature, typename Callable>
gulong connectSignal(gpointer instance, const char* signal, Callable&& callable) {
    using Handler = SignalHandler<Signature>;
    return g_signal_connect_data(instance, signal, G_CALLBACK(&Handler::call),
                                 new typename Handler::Function(std::forward<Callable>(callable)),
                                 &Handler::release, GConnectFlags{});
}

// A widget that no container owns (a top-level window), destroyed with its owner.
struct WidgetDestroyer {
    void operator()(GtkWidget* widget) const { gtk_widget_destroy(widget); }
};
using WidgetPtr = std::unique_ptr<GtkWidget, WidgetDestroyer>;

// Runs `work` in a later turn of GLib's default main context, the one gtk_main() runs. Callable
// from any thread; never runs before the caller returns.
inline void runWhenIdle(std::function<void()> work) {
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            (*static_cast<std::function<void()>*>(data))();
            return G_SOURCE_REMOVE;
        },
        new std::function<void()>(std::move(work)),
        [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

}  // namespace gtkplayer
