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
// and the threads that read it. The network thread fills a piece of its own, without the lock,
// and hands it to the readers when it is full or a round of receiving ends: the lock is taken
// once per piece, not once per curl callback, and a waiting reader is woken once for several
// pieces. Offers are refused while `limit` bytes are held (the transfer then pauses); the
// reader that brings the unread bytes down to half of that is told to resume the transfer.
class UrlStreamBuffer {
public:
    explicit UrlStreamBuffer(std::size_t limit);
    UrlStreamBuffer(const UrlStreamBuffer&) = delete;
    UrlStreamBuffer& operator=(const UrlStreamBuffer&) = delete;

    // Network thread. False when the buffer is full: the bytes were not taken and the producer
    // pauses until a reader asks for more.
    bool offer(const char* data, std::size_t length);
    // Hands the bytes offered since the last piece went out to the readers; called after each
    // round of receiving.
    void publish();
    void setResponse(HttpUrlResponse response);
    // The end of the body (no error) or the failure of the transfer, after the bytes offered.
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
    // Moves the piece being filled to the readers' queue. Waiting readers are woken when `wake`
    // is set or enough waits for them.
    void handOver(bool wake);

    const std::size_t limit_;
    const std::size_t pieceCapacity_;
    const std::size_t wakeAt_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Data> pieces_;
    std::atomic<std::size_t> unread_{0};  // bytes in pieces_; read without the lock as a hint
    std::optional<HttpUrlResponse> response_;
    std::optional<Error> failure_;
    bool ended_ = false;
    std::atomic<bool> cancelled_{false};
    bool producerPaused_ = false;
    int waitingReaders_ = 0;
    std::atomic<std::size_t> received_{0};

    // Touched only by the network thread: the piece being filled, and whether readers wait for
    // pieces already queued.
    Data filling_;
    bool wakeOwed_ = false;
};

}  // namespace zarvo
