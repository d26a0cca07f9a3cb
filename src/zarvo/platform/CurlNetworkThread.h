#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "zarvo/platform/CurlHandles.h"
#include "zarvo/platform/CurlTransfer.h"

namespace zarvo {

// The one thread that runs every HTTP transfer of the process on a curl multi handle.
// Transfers arrive from any thread through an inbox and curl_multi_wakeup; the multi
// handle's connection cache gives keep-alive reuse across transfers. Each connection group
// (a session) runs at most its per-host limit of transfers to one origin at a time; the rest
// wait in order. A transfer with no bytes moving for its time-out fails as timed out.
class CurlNetworkThread {
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
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    struct Command {
        bool cancel = false;
        std::shared_ptr<CurlTransfer> transfer;
    };
    struct HostSlots {
        int running = 0;
        std::deque<std::shared_ptr<CurlTransfer>> waiting;
    };

    void post(Command command);
    void run();
    void takeCommands();
    void admit(std::shared_ptr<CurlTransfer> transfer);
    void begin(std::shared_ptr<CurlTransfer> transfer);
    void remove(const std::shared_ptr<CurlTransfer>& transfer);
    // Takes a running transfer off the multi handle and frees its slot for a waiting one.
    std::shared_ptr<CurlTransfer> release(CURL* easy);
    void collectFinished();
    void failIdleTransfers();
    int nextWaitMilliseconds();
    void abandonAll();

    CurlMulti multi_;
    std::mutex mutex_;
    std::vector<Command> inbox_;
    bool wakePending_ = false;
    bool stopping_ = false;

    // Touched only by the network thread.
    std::unordered_map<CURL*, std::shared_ptr<CurlTransfer>> running_;
    std::unordered_map<std::string, HostSlots> hosts_;

    std::thread thread_;  // last: starts once everything above exists
};

}  // namespace zarvo
