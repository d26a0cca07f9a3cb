#pragma once

#include <cstddef>
#include <string>

#include "zarvo/media/loopback/LoopbackResponse.h"

namespace zarvo {

// One accepted connection of the loopback server, which owns its socket (non-blocking) and
// closes it when it goes. Reads take what has arrived; writes wait for room, up to a time-out,
// so that a pipeline that stops reading cannot hold a server thread for good. SIGPIPE is never
// raised: a write to a connection the pipeline closed fails instead.
class LoopbackConnection final : public LoopbackBodySink {
public:
    // How long a write may wait for the pipeline to take bytes.
    static constexpr int writeTimeoutMs = 5000;

    explicit LoopbackConnection(int socket);
    ~LoopbackConnection() override;
    LoopbackConnection(const LoopbackConnection&) = delete;
    LoopbackConnection& operator=(const LoopbackConnection&) = delete;

    int socket() const { return socket_; }
    // Appends what has arrived to received(), up to `limit` bytes in all; false once the peer
    // has closed or the connection failed.
    bool readAvailable(std::size_t limit);
    const std::string& received() const { return received_; }

    bool write(const char* data, std::size_t length) override;
    // Sends a body-less answer with `status` (a refusal) and ends the sending side; the rest of
    // what the client sends is to be drained, so that closing does not reset the connection
    // before the client has read the answer.
    void refuse(int status);
    // Reads and drops what has arrived; false once the peer has closed.
    bool drain();
    // Ends the sending side and waits, up to `limitMs`, until the client has closed its side:
    // by then it has taken in the whole answer.
    void awaitHangUp(int limitMs);

private:
    const int socket_;
    std::string received_;
};

}  // namespace zarvo
