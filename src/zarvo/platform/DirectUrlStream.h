#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <variant>
#include <vector>

#include "zarvo/platform/CurlHandles.h"
#include "zarvo/platform/CurlTransfer.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/HttpUrlResponse.h"
#include "zarvo/platform/UrlRequest.h"
#include "zarvo/platform/UrlSessionConfiguration.h"

namespace zarvo {

// Connections to origins kept open between the DirectUrlStreams of one owner, so that one
// request after another reuses them. Any thread.
class DirectUrlConnections {
public:
    explicit DirectUrlConnections(std::size_t kept = 6) : kept_(kept) {}
    DirectUrlConnections(const DirectUrlConnections&) = delete;
    DirectUrlConnections& operator=(const DirectUrlConnections&) = delete;

    // Closes the idle connections; those of streams still running close when they end.
    void close();

private:
    friend class DirectUrlStream;
    // A curl multi handle: its connection cache is what is kept.
    CurlMulti take();
    void put(CurlMulti multi);

    const std::size_t kept_;
    std::mutex mutex_;
    std::vector<CurlMulti> idle_;
    bool closed_ = false;
};

// A streamed HTTP request run by the thread that consumes it, for a server that passes a body
// on as it arrives: no network thread, no hand-over between threads, and each piece curl
// receives goes straight to the consumer. The request is made as a UrlSession with
// `configuration` makes it (headers, redirects, proxies, time-outs). waitForResponse() and
// receive() run on one thread at a time; cancel() may come from any thread and wakes them.
class DirectUrlStream : private CurlTransfer::BodyReceiver {
public:
    // Takes one piece of the body; false stops the transfer (not a failure).
    using Consume = std::function<bool(const char* data, std::size_t length)>;

    // The stream, started; or the error that stops it before it starts (see CurlTransfer).
    static std::variant<std::shared_ptr<DirectUrlStream>, Error> start(
        const UrlRequest& request, const UrlSessionConfiguration& configuration,
        std::shared_ptr<DirectUrlConnections> connections);
    ~DirectUrlStream() override;
    DirectUrlStream(const DirectUrlStream&) = delete;
    DirectUrlStream& operator=(const DirectUrlStream&) = delete;

    // Runs the transfer up to the head of the final response (any HTTP status), or its failure
    // (UrlError codes as for UrlSession's tasks). Bytes of the body that come with the head
    // wait in curl for receive().
    std::variant<HttpUrlResponse, Error> waitForResponse();
    // Runs the rest of the transfer, handing the body to `consume` piece by piece; the failure
    // that broke it off, nothing when it ended or `consume` stopped it. With `gather`, the
    // small pieces curl hands out are gathered into blocks of up to that many bytes, each
    // handed over when full or when curl has received all that was there: a consumer that
    // writes to a socket then makes one system call where it would make dozens.
    std::optional<Error> receive(const Consume& consume, std::size_t gather = 0);
    // Ends the transfer: waiting and later calls give UrlError::cancelled.
    void cancel();

    struct Token {
        explicit Token() = default;
    };
    DirectUrlStream(Token, Url url, std::shared_ptr<DirectUrlConnections> connections);

private:
    std::size_t receive(const char* data, std::size_t length) override;
    // Drives curl until the transfer ends, or until the head is there when `untilHead`; the
    // failure, if any.
    std::optional<Error> run(bool untilHead);
    // Hands the gathered bytes to the consumer; false when it stopped the transfer.
    bool handOver();
    Error cancelled() const;

    const Url url_;
    const std::shared_ptr<DirectUrlConnections> connections_;
    CurlMulti multi_;
    std::shared_ptr<CurlTransfer> transfer_;
    bool added_ = false;
    std::atomic<bool> cancelled_{false};
    const Consume* consume_ = nullptr;
    std::size_t gather_ = 0;
    struct GatherBuffer;
    std::unique_ptr<GatherBuffer> gathered_;
    bool stopped_ = false;  // the consumer stopped the transfer
};

}  // namespace zarvo
