#include "zarvo/platform/TcpConnections.h"

#include <arpa/inet.h>
#include <charconv>
#include <filesystem>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>

namespace zarvo {

void TcpConnections::shutDown(int localPort, std::optional<int> remotePort) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const std::string name = entry.path().filename().string();
        int fd = -1;
        auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), fd);
        if (failed != std::errc() || end != name.data() + name.size() || fd <= 2) {
            continue;
        }
        sockaddr_in local{};
        sockaddr_in peer{};
        socklen_t localLength = sizeof local;
        socklen_t peerLength = sizeof peer;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0 ||
            ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 ||
            local.sin_family != AF_INET || ntohs(local.sin_port) != localPort) {
            continue;
        }
        if (!remotePort || ntohs(peer.sin_port) == *remotePort) {
            ::shutdown(fd, SHUT_RDWR);
        }
    }
}

}  // namespace zarvo
