#include "zarvo/platform/DirectUrlStream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sys/mman.h>

#include "zarvo/platform/UrlError.h"

namespace zarvo {
namespace {

// Real time is watched by poll's time-out; a test scheduler's clock is looked at this often.
constexpr long longestStreamWaitMilliseconds = 1000;

}  // namespace

// The block gathered for the consumer, in pages mapped for it alone. They go back to the system
// when the body has been passed on: from the heap, a block this large would stay behind in the
// arena of each thread that ever served a segment.
struct DirectUrlStream::GatherBuffer {
    explicit GatherBuffer(std::size_t wanted) {
        void* mapped =
            ::mmap(nullptr, wanted, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped != MAP_FAILED) {
            bytes = static_cast<char*>(mapped);
            capacity = wanted;
        }
    }
    ~GatherBuffer() {
        if (bytes != nullptr) {
            ::munmap(bytes, capacity);
        }
    }
    GatherBuffer(const GatherBuffer&) = delete;
    GatherBuffer& operator=(const GatherBuffer&) = delete;

    char* bytes = nullptr;
    std::size_t capacity = 0;  // none when the pages could not be had: bytes pass through
    std::size_t size = 0;
};

void DirectUrlConnections::close() {
    std::vector<CurlMulti> idle;
    std::lock_guard lock(mutex_);
    closed_ = true;
    idle.swap(idle_);
}

CurlMulti DirectUrlConnections::take() {
    {
        std::lock_guard lock(mutex_);
        if (!idle_.empty()) {
            CurlMulti multi = std::move(idle_.back());
            idle_.pop_back();
            return multi;
        }
    }
    return CurlMulti(curl_multi_init());
}

void DirectUrlConnections::put(CurlMulti multi) {
    std::lock_guard lock(mutex_);
    if (!closed_ && idle_.size() < kept_) {
        idle_.push_back(std::move(multi));
    }
}

std::variant<std::shared_ptr<DirectUrlStream>, Error> DirectUrlStream::start(
    const UrlRequest& request, const UrlSessionConfiguration& configuration,
    std::shared_ptr<DirectUrlConnections> connections) {
    auto stream = std::make_shared<DirectUrlStream>(Token{}, request.url, std::move(connections));
    auto made = CurlTransfer::makeDirect(request, configuration, *stream);
    if (auto* error = std::get_if<Error>(&made)) {
        return std::move(*error);
    }
    stream->transfer_ = std::get<std::shared_ptr<CurlTransfer>>(std::move(made));
    stream->multi_ = stream->connections_->take();
    if (!stream->multi_ ||
        curl_multi_add_handle(stream->multi_.get(), stream->transfer_->easy()) != CURLM_OK) {
        return makeUrlError(UrlError::unknown, request.url.absoluteString(),
                            "The transfer could not be set up.");
    }
    stream->added_ = true;
    stream->transfer_->markStarted();
    return stream;
}

DirectUrlStream::DirectUrlStream(Token, Url url, std::shared_ptr<DirectUrlConnections> connections)
    : url_(std::move(url)), connections_(std::move(connections)) {}

DirectUrlStream::~DirectUrlStream() {
    if (added_) {
        // A transfer taken off before its end closes its connection; a finished one leaves it
        // in the multi handle's cache for the next stream.
        curl_multi_remove_handle(multi_.get(), transfer_->easy());
    }
    transfer_.reset();
    if (multi_) {
        connections_->put(std::move(multi_));
    }
}

std::variant<HttpUrlResponse, Error> DirectUrlStream::waitForResponse() {
    if (auto failure = run(true)) {
        return std::move(*failure);
    }
    if (auto head = transfer_->takeHead()) {
        return std::move(*head);
    }
    return makeUrlError(UrlError::badServerResponse, url_.absoluteString(),
                        "No HTTP status arrived.");
}

std::optional<Error> DirectUrlStream::receive(const Consume& consume, std::size_t gather) {
    consume_ = &consume;
    gathered_ = std::make_unique<GatherBuffer>(gather);
    gather_ = gathered_->capacity;
    // Takes the bytes that came with the head, held in curl until now.
    transfer_->resumeReceiving();
    auto failure = stopped_ ? std::nullopt : run(false);
    consume_ = nullptr;
    gathered_.reset();
    if (stopped_ && !cancelled_) {
        return std::nullopt;
    }
    return failure;
}

void DirectUrlStream::cancel() {
    cancelled_ = true;
    curl_multi_wakeup(multi_.get());
}

Error DirectUrlStream::cancelled() const {
    return makeUrlError(UrlError::cancelled, url_.absoluteString());
}

std::size_t DirectUrlStream::receive(const char* data, std::size_t length) {
    if (consume_ == nullptr) {
        return CURL_WRITEFUNC_PAUSE;  // the head is all the caller asked for so far
    }
    if (cancelled_) {
        stopped_ = true;
        return 0;
    }
    if (gathered_->size + length > gather_ && !handOver()) {
        return 0;
    }
    if (length >= gather_) {
        if (!(*consume_)(data, length)) {
            stopped_ = true;
            return 0;
        }
        return length;
    }
    std::memcpy(gathered_->bytes + gathered_->size, data, length);
    gathered_->size += length;
    return length;
}

bool DirectUrlStream::handOver() {
    if (gathered_->size == 0 || stopped_) {
        return !stopped_;
    }
    const bool goOn = (*consume_)(gathered_->bytes, gathered_->size);
    gathered_->size = 0;
    stopped_ = !goOn;
    return goOn;
}

std::optional<Error> DirectUrlStream::run(bool untilHead) {
    CURLM* multi = multi_.get();
    for (;;) {
        if (cancelled_) {
            return cancelled();
        }
        if (transfer_->hasEnded()) {
            return transfer_->failure();
        }
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            return makeUrlError(UrlError::unknown, url_.absoluteString(),
                                "The transfer could not go on.");
        }
        int queued = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
            if (message->msg == CURLMSG_DONE) {
                transfer_->complete(message->data.result);
            }
        }
        if (cancelled_) {
            return cancelled();
        }
        // What this round received goes out before the end or the failure that followed it.
        if (!untilHead && !handOver()) {
            return std::nullopt;
        }
        if (transfer_->hasEnded()) {
            return stopped_ ? std::nullopt : transfer_->failure();
        }
        if (untilHead && transfer_->hasHead()) {
            return std::nullopt;
        }
        if (transfer_->isIdleTooLong()) {
            transfer_->fail(UrlError::timedOut, "No data moved within the request's time-out.");
            continue;
        }
        long wait = -1;
        curl_multi_timeout(multi, &wait);
        wait = wait >= 0 ? std::min(wait, longestStreamWaitMilliseconds)
                         : longestStreamWaitMilliseconds;
        const double untilIdle = transfer_->idleDeadline() - transfer_->scheduler()->uptime();
        wait =
            std::min(wait, static_cast<long>(std::ceil(std::clamp(untilIdle, 0.0, 3600.0) * 1000)));
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(wait), nullptr);
    }
}

}  // namespace zarvo
