#pragma once

#include <optional>

namespace zarvo {

// Connections of this process found through its descriptor table, for servers whose library
// does not hand its sockets out (the loopback servers of tools and tests).
struct TcpConnections {
    // Shuts down every IPv4 connection accepted on `localPort` (only the one from
    // `remotePort`, when given): its client sees it end without an answer, and the server
    // fails its next write and drops it.
    static void shutDown(int localPort, std::optional<int> remotePort = std::nullopt);
};

}  // namespace zarvo
