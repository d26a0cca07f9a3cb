#include "zarvo/media/loopback/SegmentStreamHandler.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "zarvo/media/loopback/LoopbackResponse.h"
#include "zarvo/media/loopback/PlaylistHandler.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

namespace {

// Segment bytes go to the pipeline in blocks of up to this size: one send per block instead
// of one per piece of 16 KiB that curl hands out saves most of the system calls.
constexpr std::size_t sendBlock = 512 * 1024;

// The state of one answer streamed from the origin to the pipeline.
struct StreamAnswer {
    std::shared_ptr<DirectUrlStream> stream;
    std::shared_ptr<TransferGate::Pass> gatePass;
    std::int64_t skip = 0;        // bytes of the body before the range (an origin that ignored it)
    std::int64_t remaining = -1;  // bytes still to send; -1: to the end
    std::int64_t sent = 0;
    std::int64_t limit = 0;  // a body longer than this is broken (see ResponseLimits::segment)
    double started = 0;
    bool failed = false;
    bool tooLong = false;

    // Runs the rest of the transfer into `sink`; false when it broke off (the origin, the
    // pipeline hanging up, or a body shorter than announced).
    bool pass(LoopbackBodySink& sink) {
        const auto error = stream->receive(
            [&](const char* data, std::size_t length) {
                if (skip > 0) {
                    const auto dropped = std::min(static_cast<std::size_t>(skip), length);
                    data += dropped;
                    length -= dropped;
                    skip -= static_cast<std::int64_t>(dropped);
                }
                if (remaining >= 0) {
                    length = std::min(length, static_cast<std::size_t>(remaining));
                }
                if (sent + static_cast<std::int64_t>(length) > limit) {
                    tooLong = failed = true;
                    return false;
                }
                if (length > 0 && !gatePass->write([&] { return sink.write(data, length); })) {
                    failed = true;
                    return false;
                }
                sent += static_cast<std::int64_t>(length);
                if (remaining > 0) {
                    remaining -= static_cast<std::int64_t>(length);
                }
                return remaining != 0;
            },
            sendBlock);
        failed = failed || error.has_value() || remaining > 0;
        return !failed;
    }
};

}  // namespace

void SegmentStreamHandler::serve(LoopbackResponse& response, ResourceSession::Kind kind,
                                 const Url& url,
                                 const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    UrlRequest request(url);
    if (range) {
        request.setValue(range->header(), "Range");
    }
    auto answer = std::make_shared<StreamAnswer>();
    const auto facts = session_.playlists_->segmentFacts(url, range);
    answer->gatePass = session_.gate_->enter(facts && facts->last);
    answer->started = Scheduler::standard()->uptime();
    auto started = DirectUrlStream::start(request, session_.loader_->session()->configuration(),
                                          session_.connections_);
    auto head = [&]() -> std::variant<HttpUrlResponse, Error> {
        if (auto* error = std::get_if<Error>(&started)) {
            return std::move(*error);
        }
        answer->stream = std::get<std::shared_ptr<DirectUrlStream>>(std::move(started));
        session_.track(answer->stream);
        auto waited = answer->stream->waitForResponse();
        if (std::holds_alternative<Error>(waited)) {
            session_.untrack(answer->stream);
        }
        return waited;
    }();
    if (auto* error = std::get_if<Error>(&head)) {
        if (!session_.isClosed()) {
            session_.recordFailure(makeTransportError(url, *error));
        }
        response.status = 502;
        return;
    }
    const auto& origin = std::get<HttpUrlResponse>(head);
    // A redirect that was not followed (no Location, or too many) is no answer either.
    if (origin.statusCode < 200 || origin.statusCode >= 300) {
        answer->stream->cancel();
        session_.untrack(answer->stream);
        session_.recordFailure(makeStatusError(url, origin.statusCode));
        response.status = origin.statusCode >= 400 ? origin.statusCode : 502;
        return;
    }
    std::int64_t length = origin.expectedContentLength;
    if (range) {
        answer->skip = range->skippedIn(origin.statusCode);
        length = range->length;
    }
    answer->remaining = length;
    const std::optional<double> mediaDuration =
        facts ? std::optional(facts->duration) : std::nullopt;
    answer->limit =
        static_cast<std::int64_t>(facts ? ResponseLimits::segment(facts->duration, facts->bandwidth)
                                        : ResponseLimits::segment(0));
    // A body without end (or far longer than any stream's) would pile up in the pipeline: the
    // playback fails instead.
    const Error tooLong = makeTransportError(
        url, makeUrlError(UrlError::dataLengthExceedsMaximum, url.absoluteString()));
    if (length > answer->limit) {
        answer->stream->cancel();
        session_.untrack(answer->stream);
        session_.failPlayback(tooLong);
        response.status = 502;
        return;
    }

    auto release = [weakSession = session_.weak_from_this(), answer, kind, url, mediaDuration,
                    tooLong](bool complete) {
        answer->stream->cancel();
        auto session = weakSession.lock();
        if (!session) {
            return;
        }
        session->untrack(answer->stream);
        if (answer->tooLong) {
            session->failPlayback(tooLong);
        }
        const ResourceSession::Transfer transfer{
            kind,          url,
            answer->sent,  Scheduler::standard()->uptime() - answer->started,
            mediaDuration, complete && !answer->failed};
        session->notify(
            [transfer](ResourceSession::Observer& observer) { observer.transferred(transfer); });
    };
    response.status = 200;
    // The gate counts the transfer as under way until the pipeline has read the body.
    response.keptUntilHangUp = true;
    response.setProducer(
        length >= 0 ? std::optional(length) : std::nullopt,
        origin.mimeType().value_or(ResourceSession::contentTypeFor(url)),
        [answer](LoopbackBodySink& sink) { return answer->pass(sink); }, std::move(release));
}

}  // namespace zarvo
