#include "zarvo/media/gst/SeekController.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

namespace {

// Seconds: how long a seek waits for the next request after a transfer has ended (the demuxer
// asks for it a few milliseconds after reading the last byte, far more under load), how often a
// held seek looks again, the longest it is held, and how much longer the requests it cancelled
// stay held (long enough for their connections to close).
constexpr double nextRequestWait = 0.25;
constexpr double heldSeekCheck = 0.02;
constexpr double longestSeekHold = 1.0;
constexpr double cancelledTransfersHold = 0.3;

}  // namespace

SeekController::SeekController(std::weak_ptr<Pipeline> pipeline) : pipeline_(std::move(pipeline)) {}

std::optional<SeekController::Seek> SeekController::toStartOf(
    const HlsPlaylistRewriter::Result& playlist) {
    if (!playlist.start) {
        return std::nullopt;
    }
    double length = 0;
    for (const auto& segment : playlist.segments) {
        length += segment.duration;
    }
    const double offset = playlist.start->timeOffset;
    const double position = offset >= 0 ? std::min(offset, length) : std::max(length + offset, 0.0);
    constexpr std::int32_t nanosecondTimescale = 1000000000;
    return Seek{std::nullopt, MediaTime::make(position, nanosecondTimescale),
                playlist.start->precise};
}

bool SeekController::startAt(const std::optional<Seek>& start) {
    auto pipeline = pipeline_.lock();
    if (!start || !pipeline || hasPending() ||
        std::fabs(start->time.seconds() - pipeline->position().seconds()) <= 0.001) {
        return false;
    }
    setTarget(start->time);
    send(start->time, start->exact, std::nullopt);
    return inFlight();
}

void SeekController::reset(std::shared_ptr<TransferGate> gate) {
    gate_ = std::move(gate);
    id_.reset();
    pending_.reset();
    inFlightSeqnum_ = GST_SEQNUM_INVALID;
    held_.reset();
    ++heldGeneration_;
    target_ = MediaTime::zero();
}

void SeekController::request(Seek seek) {
    if (inFlight()) {
        pending_ = seek;
        return;
    }
    if (seek.id) {
        id_ = seek.id;
    }
    MediaTime time = seek.time;
    if (!time.isNumeric()) {
        auto pipeline = pipeline_.lock();
        time = pipeline ? pipeline->position() : MediaTime::zero();
    }
    send(time, seek.exact, seek.id);
}

void SeekController::sendPending() {
    if (pending_) {
        request(*std::exchange(pending_, std::nullopt));
    }
}

void SeekController::send(MediaTime time, bool exact, std::optional<std::uint64_t> id) {
    if (!gate_ || gate_->settled(nextRequestWait)) {
        sendNow(time, exact, id);
        return;
    }
    gate_->hold();
    held_ = HeldSeek{time, exact, id, Scheduler::standard()->uptime()};
    checkHeld(++heldGeneration_);
}

void SeekController::checkHeld(std::uint64_t generation) {
    DispatchQueue::main()->asyncAfter(heldSeekCheck, [weakSelf = weak_from_this(), generation] {
        auto self = weakSelf.lock();
        if (!self || !self->held_ || generation != self->heldGeneration_ || !self->gate_) {
            return;
        }
        const auto gate = self->gate_;
        const bool waitedLongEnough =
            Scheduler::standard()->uptime() - self->held_->since >= longestSeekHold;
        if (!gate->settled(nextRequestWait) && !waitedLongEnough) {
            self->checkHeld(generation);
            return;
        }
        const HeldSeek seek = *std::exchange(self->held_, std::nullopt);
        self->sendNow(seek.time, seek.exact, seek.id);
        // The transfers the seek cancelled stay held a while longer; those that start from
        // now on pass.
        const auto point = gate->passNewTransfers();
        DispatchQueue::main()->asyncAfter(cancelledTransfersHold,
                                          [weakGate = std::weak_ptr<TransferGate>(gate), point] {
                                              if (auto gate = weakGate.lock()) {
                                                  gate->releaseUpTo(point);
                                              }
                                          });
        if (auto pipeline = self->pipeline_.lock()) {
            pipeline->heldSeekSent();
        }
    });
}

void SeekController::sendNow(MediaTime time, bool exact, std::optional<std::uint64_t> id) {
    auto pipeline = pipeline_.lock();
    if (!pipeline) {
        return;
    }
    inFlightSeqnum_ = pipeline->sendFlushingSeek(time, exact);
    if (inFlightSeqnum_ == GST_SEQNUM_INVALID && id) {
        // The pipeline refused the seek: it stays where it is, and the seek is over.
        finish();
    }
}

bool SeekController::takePreroll(guint32 seqnum, bool orNone) {
    if (inFlightSeqnum_ == GST_SEQNUM_INVALID) {
        return orNone;
    }
    // Sequence numbers come from one counter: a message numbered after the seek event was made
    // after it, so it is the seek's preroll.
    if (gst_util_seqnum_compare(seqnum, inFlightSeqnum_) <= 0) {
        return false;
    }
    inFlightSeqnum_ = GST_SEQNUM_INVALID;
    return true;
}

void SeekController::finish() {
    if (!id_) {
        return;
    }
    const std::uint64_t id = *std::exchange(id_, std::nullopt);
    if (auto pipeline = pipeline_.lock()) {
        pipeline->seekFinished(id);
    }
}

void SeekController::abandon() {
    finish();
    pending_.reset();
}

}  // namespace zarvo
