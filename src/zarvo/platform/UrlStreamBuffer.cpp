#include "zarvo/platform/UrlStreamBuffer.h"

#include <algorithm>
#include <utility>

namespace zarvo {
namespace {

// curl hands bodies over in pieces of at most 16 KiB; pieces for readers grow up to a quarter
// of the limit, within these bounds.
constexpr std::size_t smallestPiece = 16 * 1024;
constexpr std::size_t largestPiece = 256 * 1024;

}  // namespace

UrlStreamBuffer::UrlStreamBuffer(std::size_t limit)
    : limit_(limit), pieceCapacity_(std::clamp(limit / 4, smallestPiece, largestPiece)) {}

bool UrlStreamBuffer::offer(const char* data, std::size_t length) {
    std::unique_lock lock(mutex_);
    if (cancelled_) {
        return true;  // nobody reads any more; the transfer is being taken down
    }
    if (unread_ > 0 && unread_ + length > limit_) {
        producerPaused_ = true;
        return false;
    }
    if (!pieces_.empty() && pieces_.back().size() + length <= pieces_.back().capacity()) {
        pieces_.back().append(data, length);
    } else {
        Data piece;
        piece.reserve(std::max(length, pieceCapacity_));
        piece.append(data, length);
        pieces_.push_back(std::move(piece));
    }
    unread_ += length;
    received_.fetch_add(length, std::memory_order_relaxed);
    if (waitingReaders_ == 0) {
        return true;
    }
    if (unread_ < pieceCapacity_) {
        wakeDue_ = true;
        return true;
    }
    wakeDue_ = false;
    lock.unlock();
    changed_.notify_all();
    return true;
}

void UrlStreamBuffer::publish() {
    if (std::exchange(wakeDue_, false)) {
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
    changed_.wait(lock, [&] { return response_ || failure_ || cancelled_; });
    --waitingReaders_;
    if (cancelled_ || !response_) {
        return *failure_;
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
