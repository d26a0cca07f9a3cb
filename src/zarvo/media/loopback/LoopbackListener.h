#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "zarvo/media/loopback/HttpRequestHead.h"
#include "zarvo/media/loopback/LoopbackConnection.h"

namespace zarvo {

// Accepts the loopback server's connections on 127.0.0.1 and reads their request heads on one
// thread, many at once, so that a client that sends half a head holds no server thread. A head
// that is malformed or past HttpRequestHead's bounds is refused here; a connection idle for
// `idleReadSeconds`, or still without a whole head after `headSeconds`, is closed; past
// `maxPendingConnections` heads in progress, new connections are closed at once. Each whole
// head goes to the handler with its connection. The thread carries `threadName`.
class LoopbackListener {
public:
    using Handler =
        std::function<void(std::unique_ptr<LoopbackConnection> connection, HttpRequestHead head)>;
    struct Limits {
        double idleReadSeconds = 3;
        double headSeconds = 10;
        std::size_t maxPendingConnections = 256;
    };

    LoopbackListener(Handler handler, Limits limits, std::string threadName);
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    // Listens on an ephemeral port of 127.0.0.1: the port, or 0 when it cannot.
    int start();

private:
    struct Pending;
    void run();
    void accept(std::vector<Pending>& pending);
    // Reads what `pending` sent; false when it is done with (handed over or closed).
    bool read(Pending& pending, double now);

    const Handler handler_;
    const Limits limits_;
    const std::string threadName_;
    int listenSocket_ = -1;
    int wakeup_ = -1;  // an eventfd that stops the thread
    std::thread thread_;
};

}  // namespace zarvo
