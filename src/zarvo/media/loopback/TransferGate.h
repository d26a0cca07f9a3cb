#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>

namespace zarvo {

class Scheduler;

// Holds the body bytes that a playback's server threads send to the pipeline still around a
// flushing seek. GStreamer's adaptive demuxer (1.22) may hand bytes it had already read for a
// download that the seek cancels to the download that follows, and then reuse a request that
// is still in flight and abort. So a seek goes out only once no body has moved for a moment,
// and the transfers that the seek cancels stay held until their connections are gone.
//
// Every transfer takes a ticket when it starts; a ticket older than the release point is held.
class TransferGate {
public:
    using Ticket = std::uint64_t;

    explicit TransferGate(std::shared_ptr<Scheduler> scheduler);

    // A ticket for a transfer starting now.
    Ticket enter();
    // Waits while `ticket` is held, then runs `write` (one block of body bytes) and returns
    // its result; false without writing when the gate has closed.
    bool write(Ticket ticket, const std::function<bool()>& write);

    // Holds every transfer, those that start from now on too.
    void hold();
    // Lets transfers that start from now on pass; those that started before stay held. Returns
    // the release point for `releaseUpTo`.
    Ticket passNewTransfers();
    // Lets the transfers held at `point` pass, unless a later hold has taken over.
    void releaseUpTo(Ticket point);
    // True when no block is being written and none has been for `seconds`.
    bool quietFor(double seconds) const;
    // Lets everything pass for good (the playback is over).
    void close();

private:
    bool held(Ticket ticket) const;

    const std::shared_ptr<Scheduler> scheduler_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Ticket next_ = 1;
    Ticket releasePoint_ = 0;  // tickets below this are held
    bool holdingAll_ = false;
    bool closed_ = false;
    int writing_ = 0;
    double lastWriteEnd_ = -std::numeric_limits<double>::infinity();
};

}  // namespace zarvo
