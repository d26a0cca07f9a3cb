#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zarvo {

// Where a response body goes: the connection to the pipeline. write() is false once the
// connection is gone (or a write stalled past the server's write time-out).
class LoopbackBodySink {
public:
    virtual ~LoopbackBodySink() = default;
    virtual bool write(const char* data, std::size_t length) = 0;
};

// The answer to one request of the loopback server: a status, fields, and a body that is either
// held whole or produced while it is sent. A produced body has a known length (sent with
// Content-Length; fewer bytes break the connection off) or none (sent chunked). `release` runs
// once after the answer, with whether the whole body went out; a HEAD request sends no body, so
// its producer never runs and the release says false.
struct LoopbackResponse {
    // Writes the body; false when it broke off.
    using Producer = std::function<bool(LoopbackBodySink& sink)>;
    using Release = std::function<void(bool complete)>;

    int status = 404;
    std::vector<std::pair<std::string, std::string>> fields;
    std::string contentType;
    std::string content;
    Producer producer;
    std::optional<std::int64_t> length;  // of a produced body; none: chunked
    Release release;
    // The client waits for this answer with a thread held (a playlist or a key): the server
    // counts it as given only once the client has hung up on it.
    bool readBeforeDone = false;
    // The producer (and what it holds) is kept after the body until the client has hung up,
    // that is has read it all, or a limit has passed.
    bool keptUntilHangUp = false;

    void setField(std::string name, std::string value);
    void setContent(std::string body, std::string type);
    void setProducer(std::optional<std::int64_t> bodyLength, std::string type, Producer produce,
                     Release done);

    // Sends the answer on `sink` (the head, then the body unless `headOnly`) and runs the
    // release. False when the connection broke off.
    bool send(LoopbackBodySink& sink, bool headOnly);

    // "OK", "Not Found", ...; "Status" for a code without a phrase of its own.
    static const char* reasonPhrase(int status);
};

}  // namespace zarvo
