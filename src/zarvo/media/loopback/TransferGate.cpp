#include "zarvo/media/loopback/TransferGate.h"

#include "zarvo/platform/Scheduler.h"

namespace zarvo {

TransferGate::TransferGate(std::shared_ptr<Scheduler> scheduler)
    : scheduler_(std::move(scheduler)) {}

std::shared_ptr<TransferGate::Pass> TransferGate::enter(bool last) {
    std::unique_lock lock(mutex_);
    const Ticket ticket = next_;
    // A request that comes in follows one that ended.
    if (!unfollowed_.empty()) {
        unfollowed_.pop_back();
    }
    auto pass = std::make_shared<Pass>(Pass::Key{}, shared_from_this());
    pass->last_ = last;
    // A request held for a seek was cancelled by it: what becomes of its answer is no matter.
    pass->cancelled_ = held(ticket);
    changed_.wait(lock, [&] { return !held(ticket); });
    if (!pass->cancelled_) {
        ++underWay_;
    }
    return pass;
}

TransferGate::Pass::~Pass() {
    if (!cancelled_) {
        gate_->left(wrote_ && !last_);
    }
}

void TransferGate::left(bool followed) {
    // Streams that have ended leave entries that no request follows; only the latest count.
    constexpr std::size_t kept = 16;
    std::lock_guard lock(mutex_);
    --underWay_;
    if (followed) {
        unfollowed_.push_back(scheduler_->uptime());
        if (unfollowed_.size() > kept) {
            unfollowed_.pop_front();
        }
    }
}

bool TransferGate::held(Ticket ticket) const {
    return !closed_ && (holdingAll_ || ticket < releasePoint_);
}

bool TransferGate::Pass::write(const std::function<bool()>& write) {
    {
        std::lock_guard lock(gate_->mutex_);
        if (gate_->closed_) {
            return false;
        }
    }
    const bool written = write();
    wrote_ = wrote_ || written;
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

bool TransferGate::settled(double nextRequestWait) const {
    std::lock_guard lock(mutex_);
    return underWay_ == 0 &&
           (unfollowed_.empty() || scheduler_->uptime() - unfollowed_.back() >= nextRequestWait);
}

void TransferGate::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

}  // namespace zarvo
