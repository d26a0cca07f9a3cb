#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// A relay made of nothing but the socket calls that any relay makes: for each connection it
// reads the request's head, sends it on to 127.0.0.1:`originPort` over a connection of its own,
// and passes the answer back in 512 KiB blocks of recv and send. With 4 MiB socket buffers on
// both sides, it shows what passing bytes through a second loopback connection costs on the
// machine at hand, apart from any server's own work. One connection at a time.
class BareRelay {
public:
    explicit BareRelay(int originPort) : originPort_(originPort) {
        listener_.fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        if (bind(listener_.fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            listen(listener_.fd, 8) != 0 ||
            getsockname(listener_.fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            return;
        }
        port_ = ntohs(address.sin_port);
        accepting_ = std::thread([this] { acceptAll(); });
    }
    ~BareRelay() {
        shutdown(listener_.fd, SHUT_RDWR);  // wakes accept()
        if (accepting_.joinable()) {
            accepting_.join();
        }
    }
    BareRelay(const BareRelay&) = delete;
    BareRelay& operator=(const BareRelay&) = delete;

    // The URL of `path` through the relay; empty when it could not listen.
    std::string url(const std::string& path) const {
        return port_ > 0 ? "http://127.0.0.1:" + std::to_string(port_) + path : "";
    }

private:
    struct Socket {
        int fd = -1;
        Socket() = default;
        explicit Socket(int descriptor) : fd(descriptor) {}
        Socket(const Socket&) = delete;
        Socket& operator=(const Socket&) = delete;
        ~Socket() {
            if (fd >= 0) {
                close(fd);
            }
        }
    };

    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        return address;
    }

    static void setBuffer(int fd, int option) {
        const int size = 4 << 20;
        setsockopt(fd, SOL_SOCKET, option, &size, sizeof size);
    }

    static bool sendAll(int fd, const char* data, std::size_t length) {
        while (length > 0) {
            const ssize_t sent = send(fd, data, length, MSG_NOSIGNAL);
            if (sent <= 0) {
                return false;
            }
            data += sent;
            length -= static_cast<std::size_t>(sent);
        }
        return true;
    }

    void acceptAll() {
        for (;;) {
            Socket client(accept(listener_.fd, nullptr, nullptr));
            if (client.fd < 0) {
                return;
            }
            relay(client.fd);
        }
    }

    // The request goes on as the client sent it (heads fit one read on loopback), asking the
    // origin to close after its answer; the answer comes back until the origin closes or the
    // client goes away.
    void relay(int client) {
        std::vector<char> block(512 * 1024);
        const ssize_t got = recv(client, block.data(), block.size(), 0);
        std::string head(block.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (head.size() < 4 || head.compare(head.size() - 4, 4, "\r\n\r\n") != 0) {
            return;
        }
        head.insert(head.size() - 2, "Connection: close\r\n");
        Socket origin(socket(AF_INET, SOCK_STREAM, 0));
        setBuffer(origin.fd, SO_RCVBUF);
        setBuffer(client, SO_SNDBUF);
        const sockaddr_in address = loopback(originPort_);
        if (connect(origin.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            !sendAll(origin.fd, head.data(), head.size())) {
            return;
        }
        for (;;) {
            const ssize_t got = recv(origin.fd, block.data(), block.size(), 0);
            if (got <= 0 || !sendAll(client, block.data(), static_cast<std::size_t>(got))) {
                return;
            }
        }
    }

    const int originPort_;
    Socket listener_;
    int port_ = -1;
    std::thread accepting_;
};
