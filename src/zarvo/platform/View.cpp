#include "zarvo/platform/View.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <map>

#include <glib-unix.h>

#include "zarvo/platform/Log.h"

namespace zarvo {

// The process's connection to the X server for views, opened on first use from $DISPLAY.
// Its events are read on the main context and go to the view whose window they name.
class View::Connection {
public:
    // The connection, or nullptr without a display.
    static Connection* shared() {
        static Connection* connection = open();
        return connection;
    }

    Display* display() const { return display_; }
    Atom deleteWindow() const { return deleteWindow_; }

    Observation route(Window window, std::function<void(const XEvent&)> handler) {
        routes_[window] = std::move(handler);
        return Observation([this, window] { routes_.erase(window); });
    }

    // Sends what was asked and handles events that arrived meanwhile.
    void flush() {
        XFlush(display_);
        if (XEventsQueued(display_, QueuedAlready) > 0 && !pumpScheduled_) {
            pumpScheduled_ = true;
            g_idle_add(
                [](gpointer data) -> gboolean {
                    auto* self = static_cast<Connection*>(data);
                    self->pumpScheduled_ = false;
                    self->pump();
                    return G_SOURCE_REMOVE;
                },
                this);
        }
    }

private:
    static Connection* open() {
        XInitThreads();
        Display* display = XOpenDisplay(nullptr);
        if (display == nullptr) {
            return nullptr;
        }
        // A request about a window that another client already destroyed must not end the
        // process (Xlib's default handler exits): report it and go on.
        XSetErrorHandler([](Display* d, XErrorEvent* error) {
            char text[256] = {};
            XGetErrorText(d, error->error_code, text, sizeof text);
            logDiagnostic("View", std::string("X11 error: ") + text + " (request " +
                                      std::to_string(error->request_code) + ")");
            return 0;
        });
        // Kept for the life of the process: windows may be made at any time.
        static Connection connection(display);
        return &connection;
    }

    explicit Connection(Display* display)
        : display_(display), deleteWindow_(XInternAtom(display, "WM_DELETE_WINDOW", False)) {
        g_unix_fd_add(
            ConnectionNumber(display), G_IO_IN,
            [](gint, GIOCondition, gpointer data) -> gboolean {
                static_cast<Connection*>(data)->pump();
                return G_SOURCE_CONTINUE;
            },
            this);
    }

    void pump() {
        while (XPending(display_) > 0) {
            XEvent event;
            XNextEvent(display_, &event);
            auto found = routes_.find(event.xany.window);
            if (found != routes_.end()) {
                auto handler = found->second;
                handler(event);
            }
        }
    }

    Display* display_;
    Atom deleteWindow_;
    std::map<Window, std::function<void(const XEvent&)>> routes_;
    bool pumpScheduled_ = false;
};

namespace {

unsigned long pixelOf(Display* display, const Color& color) {
    XColor exact{};
    exact.red = static_cast<unsigned short>(color.red * 65535);
    exact.green = static_cast<unsigned short>(color.green * 65535);
    exact.blue = static_cast<unsigned short>(color.blue * 65535);
    exact.flags = DoRed | DoGreen | DoBlue;
    if (XAllocColor(display, DefaultColormap(display, DefaultScreen(display)), &exact) == 0) {
        return BlackPixel(display, DefaultScreen(display));
    }
    return exact.pixel;
}

unsigned int extent(double points) {
    return points >= 1 ? static_cast<unsigned int>(points) : 1u;
}

}  // namespace

void View::install(Rect frame, std::optional<NativeWindowHandle> parent) {
    frame_ = frame;
    layer_ = makeLayer();
    auto* connection = Connection::shared();
    if (connection == nullptr) {
        return;
    }
    Display* display = connection->display();
    ownWindow_ = !parent;
    const Window under = parent ? *parent : DefaultRootWindow(display);
    const unsigned long background = pixelOf(display, backgroundColor_);
    const Window window =
        XCreateSimpleWindow(display, under, static_cast<int>(frame.x), static_cast<int>(frame.y),
                            extent(frame.width), extent(frame.height), 0, background, background);
    XSelectInput(display, window, ExposureMask | StructureNotifyMask | KeyPressMask);
    if (ownWindow_) {
        Atom protocols[] = {connection->deleteWindow()};
        XSetWMProtocols(display, window, protocols, 1);
    }
    XMapWindow(display, window);
    window_ = window;
    route_ = connection->route(window, [weakSelf = weak_from_this()](const XEvent& event) {
        if (auto self = weakSelf.lock()) {
            self->handleEvent(&event);
        }
    });
    layer_->needsDisplay_ = [weakSelf = weak_from_this()] {
        if (auto self = weakSelf.lock()) {
            self->repaint();
        }
    };
    connection->flush();
    tellLayer();
}

void View::repaint() {
    if (window_) {
        auto* connection = Connection::shared();
        XClearWindow(connection->display(), *window_);
        connection->flush();
        layer_->windowExposed();
    }
}

View::~View() {
    // The layer lets go of the window before it goes.
    if (layer_) {
        layer_->windowChanged(std::nullopt, bounds());
    }
    route_.invalidate();
    if (window_) {
        auto* connection = Connection::shared();
        XDestroyWindow(connection->display(), *window_);
        connection->flush();
    }
}

void View::setFrame(Rect frame) {
    if (frame == frame_) {
        return;
    }
    frame_ = frame;
    if (window_) {
        auto* connection = Connection::shared();
        XMoveResizeWindow(connection->display(), *window_, static_cast<int>(frame.x),
                          static_cast<int>(frame.y), extent(frame.width), extent(frame.height));
        connection->flush();
    }
    tellLayer();
}

void View::setBackgroundColor(Color color) {
    backgroundColor_ = color;
    if (window_) {
        auto* connection = Connection::shared();
        XSetWindowBackground(connection->display(), *window_,
                             pixelOf(connection->display(), color));
        repaint();
    }
}

void View::setTitle(const std::string& title) {
    if (window_ && ownWindow_) {
        auto* connection = Connection::shared();
        XStoreName(connection->display(), *window_, title.c_str());
        connection->flush();
    }
}

void View::tellLayer() {
    if (layer_) {
        layer_->windowChanged(window_, bounds());
    }
}

void View::handleEvent(const void* raw) {
    const XEvent& event = *static_cast<const XEvent*>(raw);
    switch (event.type) {
        case Expose:
            if (event.xexpose.count == 0) {
                layer_->windowExposed();
            }
            return;
        case ConfigureNotify: {
            // The window manager (or the host) gave the window another size.
            const auto& configure = event.xconfigure;
            if (configure.width != static_cast<int>(extent(frame_.width)) ||
                configure.height != static_cast<int>(extent(frame_.height))) {
                frame_.width = configure.width;
                frame_.height = configure.height;
                tellLayer();
            }
            return;
        }
        case KeyPress: {
            XKeyEvent key = event.xkey;
            char text[16] = {};
            KeySym symbol = 0;
            const int length = XLookupString(&key, text, sizeof text - 1, &symbol, nullptr);
            if (length > 0) {
                keyObservers_.notify(std::string(text, static_cast<std::size_t>(length)));
            }
            return;
        }
        case ClientMessage:
            if (static_cast<Atom>(event.xclient.data.l[0]) ==
                Connection::shared()->deleteWindow()) {
                closeObservers_.notify();
            }
            return;
        default:
            return;
    }
}

}  // namespace zarvo
