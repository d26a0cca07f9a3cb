#include "zarvo/media/loopback/TransferGate.h"

#include "zarvo/platform/Scheduler.h"

namespace zarvo {

TransferGate::TransferGate(std::shared_ptr<Scheduler> scheduler)
    : scheduler_(std::move(scheduler)) {}

TransferGate::Ticket TransferGate::enter() {
    std::lock_guard lock(mutex_);
    return next_;
}

bool TransferGate::held(Ticket ticket) const {
    return !closed_ && (holdingAll_ || ticket < releasePoint_);
}

bool TransferGate::write(Ticket ticket, const std::function<bool()>& write) {
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !held(ticket); });
        if (closed_) {
            return false;
        }
        ++writing_;
    }
    const bool written = write();
    std::lock_guard lock(mutex_);
    --writing_;
    lastWriteEnd_ = scheduler_->uptime();
    return written;
}

void TransferGate::hold() {
    std::lock_guard lock(mutex_);
    holdingAll_ = true;
}

TransferGate::Ticket TransferGate::passNewTransfers() {
    Ticket point = 0;
    {
        std::lock_guard lock(mutex_);
        holdingAll_ = false;
        releasePoint_ = ++next_;
        point = releasePoint_;
    }
    changed_.notify_all();
    return point;
}

void TransferGate::releaseUpTo(Ticket point) {
    {
        std::lock_guard lock(mutex_);
        if (holdingAll_ || releasePoint_ != point) {
            return;
        }
        releasePoint_ = 0;
    }
    changed_.notify_all();
}

bool TransferGate::quietFor(double seconds) const {
    std::lock_guard lock(mutex_);
    return writing_ == 0 && scheduler_->uptime() - lastWriteEnd_ >= seconds;
}

void TransferGate::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

}  // namespace zarvo
