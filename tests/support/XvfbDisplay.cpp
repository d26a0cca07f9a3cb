#include "support/XvfbDisplay.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace zarvo::test {

XvfbDisplay::XvfbDisplay() {
    int fds[2];
    if (pipe(fds) != 0) {
        return;
    }
    const std::string fd = std::to_string(fds[1]);
    pid_ = fork();
    if (pid_ == 0) {
        close(fds[0]);
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "800x600x24", "-nolisten",
               "tcp", "-noreset", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    // Xvfb writes its display number once it accepts connections.
    std::string number;
    pollfd ready{fds[0], POLLIN, 0};
    char c = 0;
    while (pid_ > 0 && poll(&ready, 1, 10000) == 1 && read(fds[0], &c, 1) == 1 && c != '\n') {
        number += c;
    }
    close(fds[0]);
    if (!number.empty()) {
        name_ = ":" + number;
        setenv("DISPLAY", name_->c_str(), 1);
    }
}

XvfbDisplay::~XvfbDisplay() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
}

std::optional<WindowGrab> WindowGrab::of(unsigned long window) {
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return std::nullopt;
    }
    std::optional<WindowGrab> grab;
    XWindowAttributes attributes{};
    if (XGetWindowAttributes(display, window, &attributes) != 0) {
        XImage* image = XGetImage(display, window, 0, 0, static_cast<unsigned>(attributes.width),
                                  static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
        if (image != nullptr) {
            grab.emplace();
            grab->width_ = attributes.width;
            grab->height_ = attributes.height;
            grab->rgb_.reserve(static_cast<std::size_t>(attributes.width * attributes.height * 3));
            for (int y = 0; y < attributes.height; ++y) {
                for (int x = 0; x < attributes.width; ++x) {
                    const unsigned long pixel = XGetPixel(image, x, y);
                    grab->rgb_ += static_cast<char>((pixel & image->red_mask) >> 16);
                    grab->rgb_ += static_cast<char>((pixel & image->green_mask) >> 8);
                    grab->rgb_ += static_cast<char>(pixel & image->blue_mask);
                }
            }
            XDestroyImage(image);
        }
    }
    XCloseDisplay(display);
    return grab;
}

WindowGrab::Pixel WindowGrab::at(int x, int y) const {
    const auto offset = static_cast<std::size_t>((y * width_ + x) * 3);
    return {static_cast<unsigned char>(rgb_[offset]), static_cast<unsigned char>(rgb_[offset + 1]),
            static_cast<unsigned char>(rgb_[offset + 2])};
}

bool WindowGrab::columnIsBlack(int x) const {
    for (int y = 0; y < height_; ++y) {
        if (!at(x, y).isBlack()) {
            return false;
        }
    }
    return true;
}

bool WindowGrab::rowIsBlack(int y) const {
    for (int x = 0; x < width_; ++x) {
        if (!at(x, y).isBlack()) {
            return false;
        }
    }
    return true;
}

}  // namespace zarvo::test
