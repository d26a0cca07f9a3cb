#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace zarvo {

class Timer;

// The main run loop: GLib's default main context, driven by the main thread. Tools and
// tests run it with runUntil(); hosts that already run a GLib main loop need nothing more.
class RunLoop {
public:
    static RunLoop& main();

    // Schedules the timer on the main queue (its block runs on the main thread).
    void add(const std::shared_ptr<Timer>& timer);

    // Runs the main context on the calling thread until `done()` is true or `timeout` of real
    // time has passed (a safety net, not a way to wait for time). Returns done().
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // Runs every main-queue item that is ready now, and those they post, then returns.
    void runUntilIdle();
    // Runs until stop() is called (from any thread).
    void run();
    void stop();

private:
    RunLoop() = default;
};

}  // namespace zarvo
