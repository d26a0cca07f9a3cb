#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace zarvo::test {

// A virtual X server (Xvfb) for the life of the object, made this process's $DISPLAY. Views
// open their connection once per process: make it before the first view.
class XvfbDisplay {
public:
    XvfbDisplay();
    ~XvfbDisplay();
    XvfbDisplay(const XvfbDisplay&) = delete;
    XvfbDisplay& operator=(const XvfbDisplay&) = delete;

    // ":N", or nothing when Xvfb could not start (not installed).
    const std::optional<std::string>& name() const { return name_; }

private:
    pid_t pid_ = -1;
    std::optional<std::string> name_;
};

// What a window shows, read back from the X server as RGB.
class WindowGrab {
public:
    struct Pixel {
        int red = 0;
        int green = 0;
        int blue = 0;
        bool isBlack() const { return red < 24 && green < 24 && blue < 24; }
    };

    // The window's content now; nothing when it cannot be read.
    static std::optional<WindowGrab> of(unsigned long window);

    int width() const { return width_; }
    int height() const { return height_; }
    Pixel at(int x, int y) const;
    // Whether every pixel of column `x` (or row `y`) is black.
    bool columnIsBlack(int x) const;
    bool rowIsBlack(int y) const;

private:
    int width_ = 0;
    int height_ = 0;
    std::string rgb_;
};

}  // namespace zarvo::test
