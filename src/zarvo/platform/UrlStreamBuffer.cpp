#include "zarvo/platform/UrlStreamBuffer.h"

#include <algorithm>
#include <utility>

#include "zarvo/platform/UrlError.h"

namespace zarvo {
namespace {

// curl hands bodies over in pieces of at most 16 KiB; pieces for readers grow up to a quarter
// of the limit, within these bounds. Larger pieces would mean fewer hand-offs, but the
// allocator returns freed blocks of 64 KiB and more to the system at once, and touching fresh
// pages for every piece costs more than the hand-offs saved.
constexpr std::size_t smallestPiece = 16 * 1024;
constexpr std::size_t largestPiece = 32 * 1024;
// A waiting reader is woken when this much (at most) is queued or a round of receiving ends:
// it then takes several pieces for one wake-up.
constexpr std::size_t largestWake = 256 * 1024;

}  // namespace

UrlStreamBuffer::UrlStreamBuffer(std::size_t limit)
    : limit_(limit),
      pieceCapacity_(std::clamp(limit / 4, smallestPiece, largestPiece)),
      wakeAt_(std::clamp(limit / 4, pieceCapacity_, largestWake)) {}

bool UrlStreamBuffer::offer(const char* data, std::size_t length) {
    if (cancelled_.load(std::memory_order_relaxed)) {
        return true;  // nobody reads any more; the transfer is being taken down
    }
    std::size_t held = unread_.load(std::memory_order_relaxed) + filling_.size();
    if (held > 0 && held + length > limit_) {
        // Full as far as this thread can tell: hand over what it holds and decide under the
        // lock, where readers take bytes and look for a paused producer.
        handOver(true);
        std::lock_guard lock(mutex_);
        if (unread_ > 0 && unread_ + length > limit_) {
            producerPaused_ = true;
            return false;
        }
    }
    if (filling_.size() + length > filling_.capacity()) {
        handOver(false);
        filling_.reserve(std::max(length, pieceCapacity_));
    }
    filling_.append(data, length);
    received_.fetch_add(length, std::memory_order_relaxed);
    if (filling_.size() >= pieceCapacity_) {
        handOver(false);
    }
    return true;
}

void UrlStreamBuffer::publish() {
    handOver(true);
}

void UrlStreamBuffer::handOver(bool wake) {
    if (filling_.empty() && !(wake && wakeOwed_)) {
        return;
    }
    bool notify = false;
    {
        std::lock_guard lock(mutex_);
        if (!filling_.empty() && !cancelled_) {
            unread_ += filling_.size();
            pieces_.push_back(std::move(filling_));
        }
        // Readers wait only while the queue is empty, so whatever is queued is news to them.
        bool news = waitingReaders_ > 0 && !pieces_.empty();
        notify = news && (wake || unread_ >= wakeAt_);
        wakeOwed_ = news && !notify;
    }
    filling_ = Data();
    if (notify) {
        changed_.notify_all();
    }
}

void UrlStreamBuffer::setResponse(HttpUrlResponse response) {
    {
        std::lock_guard lock(mutex_);
        response_ = std::move(response);
    }
    changed_.notify_all();
}

void UrlStreamBuffer::finish(std::optional<Error> error) {
    handOver(false);
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) {
            return;
        }
        failure_ = std::move(error);
        ended_ = !failure_;
    }
    changed_.notify_all();
}

std::variant<HttpUrlResponse, Error> UrlStreamBuffer::waitForResponse() {
    std::unique_lock lock(mutex_);
    ++waitingReaders_;
    changed_.wait(lock, [&] { return response_ || failure_ || ended_; });
    --waitingReaders_;
    if (cancelled_ || !response_) {
        return failure_.value_or(makeUrlError(UrlError::badServerResponse));
    }
    return *response_;
}

std::variant<Data, Error> UrlStreamBuffer::read(bool& resumeProducer) {
    resumeProducer = false;
    std::unique_lock lock(mutex_);
    if (!hasNews()) {
        ++waitingReaders_;
        changed_.wait(lock, [&] { return hasNews(); });
        --waitingReaders_;
    }
    if (cancelled_ || pieces_.empty()) {
        if (failure_) {
            return *failure_;
        }
        return Data();
    }
    Data piece = std::move(pieces_.front());
    pieces_.pop_front();
    unread_ -= piece.size();
    if (producerPaused_ && unread_ <= limit_ / 2) {
        producerPaused_ = false;
        resumeProducer = true;
    }
    return piece;
}

void UrlStreamBuffer::cancel(Error error) {
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) {
            return;
        }
        cancelled_ = true;
        failure_ = std::move(error);
        ended_ = false;
        pieces_.clear();
        unread_ = 0;
    }
    changed_.notify_all();
}

}  // namespace zarvo
