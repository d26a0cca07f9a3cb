#include "zarvo/media/loopback/LoopbackListener.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <variant>
#include <vector>

namespace zarvo {

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void configure(int socket) {
    const int yes = 1;
    // Heads and bodies go out in separate writes: without this a small body waits for the
    // client's delayed acknowledgement of the head (about 40 ms).
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    // A send buffer larger than the kernel's starting size lets a 512 KiB block of a segment go
    // out in one call while the pipeline is still reading the last one.
    const int sendBuffer = 4 << 20;
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
}

}  // namespace

struct LoopbackListener::Pending {
    std::unique_ptr<LoopbackConnection> connection;
    double opened = 0;
    double lastRead = 0;
    bool draining = false;  // refused: what the client still sends is dropped until it closes
};

LoopbackListener::LoopbackListener(Handler handler, Limits limits, std::string threadName)
    : handler_(std::move(handler)), limits_(limits), threadName_(std::move(threadName)) {}

LoopbackListener::~LoopbackListener() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(wakeup_, &one, sizeof one);
        thread_.join();
    }
    if (listenSocket_ >= 0) {
        ::close(listenSocket_);
    }
    if (wakeup_ >= 0) {
        ::close(wakeup_);
    }
}

int LoopbackListener::start() {
    listenSocket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    wakeup_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (listenSocket_ < 0 || wakeup_ < 0) {
        return 0;
    }
    const int yes = 1;
    ::setsockopt(listenSocket_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    configure(listenSocket_);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listenSocket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listenSocket_, SOMAXCONN) != 0 ||
        ::getsockname(listenSocket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    thread_ = std::thread([this] { run(); });
    return ntohs(address.sin_port);
}

void LoopbackListener::run() {
    pthread_setname_np(pthread_self(), threadName_.c_str());
    std::vector<Pending> pending;
    std::vector<pollfd> polled;
    for (;;) {
        polled.assign({{wakeup_, POLLIN, 0}, {listenSocket_, POLLIN, 0}});
        double nearest = INFINITY;
        for (const auto& each : pending) {
            polled.push_back({each.connection->socket(), POLLIN, 0});
            nearest = std::min({nearest, each.lastRead + limits_.idleReadSeconds,
                                each.opened + limits_.headSeconds});
        }
        const int timeout = std::isinf(nearest)
                                ? -1
                                : static_cast<int>(std::ceil(std::max(0.0, nearest - now()) * 1e3));
        if (::poll(polled.data(), polled.size(), timeout) < 0 && errno != EINTR) {
            return;
        }
        if (polled[0].revents != 0) {
            return;
        }
        // Connections read in this round, then those past their time, are done with.
        const double time = now();
        std::vector<Pending> kept;
        for (std::size_t i = 0; i < pending.size(); ++i) {
            Pending& each = pending[i];
            const bool readable = polled[i + 2].revents != 0;
            if (readable ? read(each, time)
                         : time < std::min(each.lastRead + limits_.idleReadSeconds,
                                           each.opened + limits_.headSeconds)) {
                kept.push_back(std::move(each));
            }
        }
        pending.swap(kept);
        if (polled[1].revents != 0) {
            accept(pending);
        }
    }
}

void LoopbackListener::accept(std::vector<Pending>& pending) {
    for (;;) {
        const int socket = ::accept4(listenSocket_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket < 0) {
            return;
        }
        auto connection = std::make_unique<LoopbackConnection>(socket);
        configure(socket);
        if (pending.size() >= limits_.maxPendingConnections) {
            continue;  // closed at once: too many heads in progress
        }
        const double time = now();
        pending.push_back({std::move(connection), time, time});
    }
}

bool LoopbackListener::read(Pending& pending, double time) {
    auto& connection = *pending.connection;
    pending.lastRead = time;
    if (pending.draining) {
        return connection.drain();
    }
    const bool open = connection.readAvailable(HttpRequestHead::maxBytes);
    switch (HttpRequestHead::progress(connection.received())) {
        case HttpRequestHead::Progress::incomplete:
            return open;
        case HttpRequestHead::Progress::tooLarge:
        case HttpRequestHead::Progress::complete:
            break;
    }
    auto parsed = HttpRequestHead::parse(connection.received());
    if (const int* status = std::get_if<int>(&parsed)) {
        connection.refuse(*status);
        pending.draining = true;
        return connection.drain();
    }
    handler_(std::move(pending.connection), std::get<HttpRequestHead>(std::move(parsed)));
    return false;
}

}  // namespace zarvo
