#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "zarvo/platform/BriefSpin.h"
#include "zarvo/platform/CurlHandles.h"
#include "zarvo/platform/CurlTransfer.h"

namespace zarvo {

// The one thread that runs every HTTP transfer of the process on a curl multi handle.
// Transfers arrive from any thread through an inbox and curl_multi_wakeup; the multi
// handle's connection cache gives keep-alive reuse across transfers. Each connection group
// (a session) runs at most its per-host limit of transfers to one origin at a time; the rest
// wait in order. A transfer with no bytes moving for its time-out, on its scheduler's clock,
// fails as timed out; a streamed transfer paused for its reader is not counted as idle.
class CurlNetworkThread : public std::enable_shared_from_this<CurlNetworkThread> {
public:
    static std::shared_ptr<CurlNetworkThread> shared();

    CurlNetworkThread();
    ~CurlNetworkThread();
    CurlNetworkThread(const CurlNetworkThread&) = delete;
    CurlNetworkThread& operator=(const CurlNetworkThread&) = delete;

    // Runs the transfer; its finish callback is called on this thread.
    void start(std::shared_ptr<CurlTransfer> transfer);
    // Stops the transfer without calling its finish callback.
    void cancel(std::shared_ptr<CurlTransfer> transfer);
    // Takes up a streamed transfer that paused because its reader fell behind.
    void resumeReceiving(std::shared_ptr<CurlTransfer> transfer);
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    struct Command {
        enum class Kind { start, cancel, checkTime, resumeReceiving } kind;
        std::shared_ptr<CurlTransfer> transfer;
    };
    struct HostSlots {
        int running = 0;
        std::deque<std::shared_ptr<CurlTransfer>> waiting;
    };

    void post(Command command);
    void run();
    // After a transfer ends with nothing else running, the next request often follows at once
    // (a completion that chains one, a caller waiting for the answer): a short wait for it
    // here is cheaper than being woken from poll. post() sends no wake-up meanwhile. True
    // when commands arrived.
    bool awaitCommandsBriefly();
    // A nearby server answers within tens of microseconds: checking the sockets for that long
    // before sleeping in poll saves the wake-up. True when a socket or a command is ready.
    bool awaitSocketsBriefly();
    void takeCommands();
    void admit(std::shared_ptr<CurlTransfer> transfer);
    void begin(std::shared_ptr<CurlTransfer> transfer);
    void resume(const std::shared_ptr<CurlTransfer>& transfer);
    // Hands what the last round received to the readers of streamed transfers.
    void publishStreams();
    void remove(const std::shared_ptr<CurlTransfer>& transfer);
    // Takes a running transfer off the multi handle and frees its slot for a waiting one.
    std::shared_ptr<CurlTransfer> release(CURL* easy);
    // Hands finished transfers to their owners; true when there were any.
    bool collectFinished();
    void failIdleTransfers();
    // Real time is watched by poll's time-out. A test scheduler's time moves on its own, so
    // work scheduled on it at the transfer's idle deadline wakes this thread to look.
    void watchIdleDeadline(const std::shared_ptr<CurlTransfer>& transfer);
    int nextWaitMilliseconds();
    void abandonAll();

    CurlMulti multi_;
    std::mutex mutex_;
    std::vector<Command> inbox_;
    // Written under the mutex; also read without it while waiting briefly for commands.
    std::atomic<bool> wakePending_{false};
    bool spinning_ = false;
    bool stopping_ = false;

    // Touched only by the network thread.
    BriefSpin commandSpin_{std::chrono::microseconds(50)};
    BriefSpin socketSpin_{std::chrono::microseconds(100)};
    std::unordered_map<CURL*, std::shared_ptr<CurlTransfer>> running_;
    std::vector<CurlTransfer*> runningStreams_;  // the streamed ones among running_
    std::unordered_map<std::string, HostSlots> hosts_;

    std::thread thread_;  // last: starts once everything above exists
};

}  // namespace zarvo
