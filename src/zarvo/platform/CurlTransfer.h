#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <curl/curl.h>

#include "zarvo/platform/CurlHandles.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/HttpUrlResponse.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlRequest.h"
#include "zarvo/platform/UrlSessionConfiguration.h"
#include "zarvo/platform/UrlStreamBuffer.h"

namespace zarvo {

// One HTTP exchange on a curl easy handle: the request made into curl options, and the body
// and headers of the response collected while CurlNetworkThread drives it, or, for a streamed
// transfer, handed to a UrlStreamBuffer as they arrive. Built on any thread; after start it is
// touched only by the network thread. A direct transfer is driven by its owner instead (see
// DirectUrlStream): it keeps the head and hands body bytes to a receiver.
class CurlTransfer {
public:
    // Takes the body of a direct transfer; answers as curl's write callback does: the length
    // taken, CURL_WRITEFUNC_PAUSE to hold the bytes until resumeReceiving(), 0 to stop.
    class BodyReceiver {
    public:
        virtual ~BodyReceiver() = default;
        virtual std::size_t receive(const char* data, std::size_t length) = 0;
    };

    // What a transfer ends with: a response (any status) with its body, or an error.
    struct Outcome {
        std::optional<Data> data;
        std::optional<HttpUrlResponse> response;
        std::optional<Error> error;
    };
    using Finish = std::function<void(Outcome)>;

    // The transfer for `request`, or the error that stops it before it starts (a scheme
    // other than http/https, no host). `connectionGroup` names the owner whose connections
    // per host are limited together. `finish` is called once, on the network thread.
    static std::variant<std::shared_ptr<CurlTransfer>, Error> make(
        const UrlRequest& request, const UrlSessionConfiguration& configuration,
        const std::string& connectionGroup, Finish finish);
    // A streamed transfer: the response head, body pieces and the end or failure go to
    // `stream`, and the transfer pauses while the stream is full (see resumeReceiving).
    static std::variant<std::shared_ptr<CurlTransfer>, Error> makeStreamed(
        const UrlRequest& request, const UrlSessionConfiguration& configuration,
        const std::string& connectionGroup, std::shared_ptr<UrlStreamBuffer> stream);
    // A direct transfer: body bytes go to `receiver`, which must outlive it.
    static std::variant<std::shared_ptr<CurlTransfer>, Error> makeDirect(
        const UrlRequest& request, const UrlSessionConfiguration& configuration,
        BodyReceiver& receiver);

    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    CURL* easy() const { return easy_.get(); }
    // The connection group and origin this transfer counts against.
    const std::string& hostKey() const { return hostKey_; }
    int maxConnectionsPerHost() const { return maxConnectionsPerHost_; }

    // The scheduler that times the transfer: Scheduler::standard() when it was made.
    const std::shared_ptr<Scheduler>& scheduler() const { return scheduler_; }
    // Called when curl takes the transfer up: the idle clock starts here.
    void markStarted() { markProgress(); }
    // The scheduler uptime at which the transfer fails as timed out unless some bytes move
    // before.
    double idleDeadline() const { return lastProgress_ + idleTimeoutSeconds_; }
    // A transfer paused for its reader is waiting for us, not for the peer: never idle.
    bool isIdleTooLong() const { return !receivePaused_ && scheduler_->uptime() >= idleDeadline(); }
    // Work scheduled to look at the deadline; replaced by the next, cancelled when the
    // transfer stops running.
    void setIdleWatch(std::shared_ptr<ScheduledWork> watch) { idleWatch_ = std::move(watch); }
    void cancelIdleWatch() {
        if (auto watch = std::exchange(idleWatch_, nullptr)) {
            watch->cancel();
        }
    }

    // Ends the transfer with curl's result, or with an error of our own (a time-out).
    void complete(CURLcode code);
    void fail(UrlError code, const std::string& detail);

    bool isStreamed() const { return stream_ != nullptr; }
    // A streamed transfer whose stream was full: curl holds the refused bytes and reads nothing.
    bool isReceivePaused() const { return receivePaused_; }
    // Takes receiving up again (the reader caught up): curl hands over the bytes it held,
    // which may fill the stream and pause the transfer again. The idle clock restarts.
    void resumeReceiving();
    // Hands the body bytes received since the last call to the stream's readers.
    void publishReceived() { stream_->publish(); }

    // A direct transfer: whether the head of the final response arrived, and taking it.
    bool hasHead() const { return headPublished_; }
    std::optional<HttpUrlResponse> takeHead() { return std::exchange(head_, std::nullopt); }
    // A direct transfer that ended (complete or fail), and its failure if it failed.
    bool hasEnded() const { return ended_; }
    const std::optional<Error>& failure() const { return failure_; }

private:
    struct Token {
        explicit Token() = default;
    };

public:
    CurlTransfer(Token, Url url, std::shared_ptr<Scheduler> scheduler)
        : url_(std::move(url)), scheduler_(std::move(scheduler)) {}

private:
    static std::variant<std::shared_ptr<CurlTransfer>, Error> makeWith(
        const UrlRequest& request, const UrlSessionConfiguration& configuration,
        const std::string& connectionGroup, Finish finish, std::shared_ptr<UrlStreamBuffer> stream,
        BodyReceiver* receiver);
    bool isStreamedOrDirect() const { return stream_ != nullptr || receiver_ != nullptr; }
    bool configure(const UrlRequest& request, const UrlSessionConfiguration& configuration);
    void deliver(Outcome outcome);
    void markProgress() { lastProgress_ = scheduler_->uptime(); }
    // The head of the response received last; none before a status line.
    std::optional<HttpUrlResponse> takeResponse();
    Outcome responseOutcome();
    // True when the head that just ended is the one the body belongs to: not an interim 1xx
    // and not a redirect that curl follows.
    bool isFinalHead() const;
    void publishHead();
    // The body ended: the head, unless a body byte brought it already, then the end go to the
    // stream (or are kept, for a direct transfer); without a status line, an error instead.
    void endStream();
    // Ends a streamed or direct transfer with `error`, or without one.
    void finishStream(std::optional<Error> error);

    static size_t onHeader(char* data, size_t size, size_t count, void* self);
    static size_t onBody(char* data, size_t size, size_t count, void* self);
    static size_t onStreamHeader(char* data, size_t size, size_t count, void* self);
    static size_t onStreamBody(char* data, size_t size, size_t count, void* self);
    static size_t onDirectBody(char* data, size_t size, size_t count, void* self);
    static int onProgress(void* self, curl_off_t downloadTotal, curl_off_t downloaded,
                          curl_off_t uploadTotal, curl_off_t uploaded);

    CurlEasy easy_;
    CurlSlist headerList_;
    const Url url_;
    const std::shared_ptr<Scheduler> scheduler_;
    std::string hostKey_;
    std::string requestBody_;
    int maxConnectionsPerHost_ = 6;
    double idleTimeoutSeconds_ = 0;
    double lastProgress_ = 0;
    std::shared_ptr<ScheduledWork> idleWatch_;
    curl_off_t lastDownloaded_ = 0;
    curl_off_t lastUploaded_ = 0;
    bool sawStatusLine_ = false;

    Data body_;
    std::optional<std::size_t> maximumBodyLength_;
    bool bodyTooLong_ = false;
    std::string errorBuffer_ = std::string(CURL_ERROR_SIZE, '\0');
    Finish finish_;

    std::shared_ptr<UrlStreamBuffer> stream_;
    bool headPublished_ = false;
    bool receivePaused_ = false;

    BodyReceiver* receiver_ = nullptr;
    std::optional<HttpUrlResponse> head_;
    std::optional<Error> failure_;
    bool ended_ = false;
};

}  // namespace zarvo
