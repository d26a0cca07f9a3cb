#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace zarvo {

class Scheduler;

// Keeps a playback's segment transfers clear of a flushing seek. GStreamer's adaptive demuxer
// (1.22) breaks when a seek cancels a download that is part-way:
//  - bytes it had already read for that download may go to the download that follows;
//  - a download it has asked for but its download thread has not yet sent is reused after the
//    seek while still in flight, and the demuxer aborts;
//  - the HTTP library may crash closing the body of a download cancelled after its head came.
// So a seek first holds new transfers before they are answered (a cancelled request that was
// never answered is harmless), then goes out once the transfers under way have ended (their
// bodies read: the server keeps a pass until the client hangs up) and each one that ended has
// been followed by the next request, which the demuxer sends soon after reading the last byte
// (or long enough has passed that none is coming). The requests held for the seek stay held
// until their connections are gone.
class TransferGate : public std::enable_shared_from_this<TransferGate> {
public:
    using Ticket = std::uint64_t;

    // One transfer let through: under way until it is gone.
    class Pass {
        struct Key {};

    public:
        Pass(Key, std::shared_ptr<TransferGate> gate) : gate_(std::move(gate)) {}
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        ~Pass();

        // Runs `write` (one block of body bytes) and returns its result; false without
        // writing when the gate has closed.
        bool write(const std::function<bool()>& write);

    private:
        friend class TransferGate;
        const std::shared_ptr<TransferGate> gate_;
        bool last_ = false;
        bool cancelled_ = false;
        bool wrote_ = false;
    };

    explicit TransferGate(std::shared_ptr<Scheduler> scheduler);

    // A transfer whose request has come in: waits while it is held, then lets it through.
    // `last`: its stream asks for nothing after it (the last segment of an ended playlist).
    std::shared_ptr<Pass> enter(bool last = false);

    // Holds every transfer that starts from now on.
    void hold();
    // Lets transfers that start from now on pass; those held before stay held. Returns the
    // release point for `releaseUpTo`.
    Ticket passNewTransfers();
    // Lets the transfers held at `point` pass, unless a later hold has taken over.
    void releaseUpTo(Ticket point);
    // True when no transfer is under way and each one that ended has been followed by another
    // request, or none has ended for `nextRequestWait` seconds.
    bool settled(double nextRequestWait) const;
    // Lets everything pass for good (the playback is over).
    void close();

private:
    bool held(Ticket ticket) const;
    void left(bool followed);

    const std::shared_ptr<Scheduler> scheduler_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Ticket next_ = 1;
    Ticket releasePoint_ = 0;  // tickets below this are held
    bool holdingAll_ = false;
    bool closed_ = false;
    int underWay_ = 0;
    std::deque<double> unfollowed_;  // when the transfers not yet followed by another ended
};

}  // namespace zarvo
