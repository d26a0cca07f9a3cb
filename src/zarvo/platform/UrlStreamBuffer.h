#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <variant>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/HttpUrlResponse.h"

namespace zarvo {

// The body of a streamed transfer between the network thread, which offers what curl receives,
// and the threads that read it. Bytes offered are appended to the newest unread piece while it
// has room, so a reader that falls behind takes fewer, larger pieces. Offers are refused while
// `limit` bytes wait unread (the transfer then pauses); the reader that brings the unread bytes
// down to half of that is told to resume the transfer.
class UrlStreamBuffer {
public:
    explicit UrlStreamBuffer(std::size_t limit);
    UrlStreamBuffer(const UrlStreamBuffer&) = delete;
    UrlStreamBuffer& operator=(const UrlStreamBuffer&) = delete;

    // Network thread. False when the buffer is full: the bytes were not taken and the producer
    // pauses until a reader asks for more. Waiting readers are woken at once when a whole piece
    // is ready, otherwise by publish().
    bool offer(const char* data, std::size_t length);
    // Wakes readers waiting for bytes offered since the last call; called after each round of
    // receiving, so a burst of small offers costs one wake-up.
    void publish();
    void setResponse(HttpUrlResponse response);
    // The end of the body (no error) or the failure of the transfer.
    void finish(std::optional<Error> error);

    // Any thread.
    std::variant<HttpUrlResponse, Error> waitForResponse();
    // The next piece, an empty Data at the end, or the failure once the pieces before it are
    // read. `resumeProducer` is set when the paused producer should go on.
    std::variant<Data, Error> read(bool& resumeProducer);
    // From now on every call gives `error` and offers are dropped.
    void cancel(Error error);
    std::size_t bytesReceived() const { return received_.load(std::memory_order_relaxed); }

private:
    bool hasNews() const { return !pieces_.empty() || failure_ || ended_; }

    const std::size_t limit_;
    const std::size_t pieceCapacity_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Data> pieces_;
    std::size_t unread_ = 0;
    std::optional<HttpUrlResponse> response_;
    std::optional<Error> failure_;
    bool ended_ = false;
    bool cancelled_ = false;
    bool producerPaused_ = false;
    int waitingReaders_ = 0;
    std::atomic<std::size_t> received_{0};

    bool wakeDue_ = false;  // touched only by the network thread
};

}  // namespace zarvo
