#include "zarvo/media/loopback/LoopbackConnection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zarvo {

LoopbackConnection::LoopbackConnection(int socket) : socket_(socket) {}

LoopbackConnection::~LoopbackConnection() {
    ::close(socket_);
}

bool LoopbackConnection::readAvailable(std::size_t limit) {
    char buffer[4096];
    while (received_.size() < limit) {
        const std::size_t room = std::min(sizeof buffer, limit - received_.size());
        const ssize_t got = ::recv(socket_, buffer, room, MSG_DONTWAIT);
        if (got > 0) {
            received_.append(buffer, static_cast<std::size_t>(got));
            continue;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    return true;
}

bool LoopbackConnection::write(const char* data, std::size_t length) {
    while (length > 0) {
        const ssize_t sent = ::send(socket_, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            data += sent;
            length -= static_cast<std::size_t>(sent);
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd wait{socket_, POLLOUT, 0};
            int ready = 0;
            do {
                ready = ::poll(&wait, 1, writeTimeoutMs);
            } while (ready < 0 && errno == EINTR);
            if (ready <= 0 || (wait.revents & (POLLERR | POLLHUP)) != 0) {
                return false;
            }
            continue;
        }
        return false;
    }
    return true;
}

void LoopbackConnection::refuse(int status) {
    LoopbackResponse response;
    response.status = status;
    if (status == 405) {
        response.setField("Allow", "GET, HEAD");
    }
    response.send(*this, false);
    ::shutdown(socket_, SHUT_WR);
}

bool LoopbackConnection::drain() {
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got > 0 || (got < 0 && errno == EINTR)) {
            continue;
        }
        return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
}

void LoopbackConnection::awaitHangUp(int limitMs) {
    using Clock = std::chrono::steady_clock;
    ::shutdown(socket_, SHUT_WR);
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
            return;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return;
        }
        if (got < 0) {
            pollfd wait{socket_, POLLIN, 0};
            ::poll(&wait, 1, static_cast<int>(left));
        }
    }
}

}  // namespace zarvo
