#pragma once

#include <chrono>
#include <thread>

namespace zarvo {

// Lets a thread that ran out of work wait a little, awake, for more before it goes to sleep.
// Work often comes in chains (a response, then the request its handler starts), and waking a
// sleeping thread costs more than the short wait. When waits keep coming up empty the work is
// sparse, so most of the following ones are skipped. Used by one thread at a time.
class BriefSpin {
public:
    explicit BriefSpin(std::chrono::microseconds limit) : limit_(limit) {}

    // Waits until `ready()` holds or the limit passes, yielding the processor in between;
    // returns `ready()`.
    template <typename Ready>
    bool wait(Ready&& ready) {
        if (ready()) {
            return true;
        }
        if (skipsLeft_ > 0) {
            --skipsLeft_;
            return false;
        }
        auto deadline = std::chrono::steady_clock::now() + limit_;
        do {
            std::this_thread::yield();
            if (ready()) {
                return true;
            }
        } while (std::chrono::steady_clock::now() < deadline);
        skipsLeft_ = skipsAfterEmptyWait;
        return false;
    }

private:
    static constexpr int skipsAfterEmptyWait = 15;

    const std::chrono::microseconds limit_;
    int skipsLeft_ = 0;
};

}  // namespace zarvo
