#include "zarvo/media/model/Player.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zarvo/media/model/MediaEngine.h"

namespace zarvo {

namespace {

// A timer that fires this close before its boundary counts as on it (timers are not exact).
constexpr double boundarySlack = 0.01;

}  // namespace

std::shared_ptr<Player> Player::make() {
    return make(MediaEngine::current());
}

std::shared_ptr<Player> Player::make(const std::shared_ptr<MediaEngine>& engine) {
    auto player = std::make_shared<Player>(Token{});
    player->engine_ = engine->makePlayerEngine(player);
    return player;
}

Player::~Player() {
    for (auto& [id, observer] : periodicObservers_) {
        observer.active->store(false);
        if (observer.pending) {
            observer.pending->cancel();
        }
    }
    if (currentItem_) {
        // The item cannot reach a player being destroyed: ask the engine directly.
        const MediaTime time = engine_->currentTime();
        if (time.isNumeric()) {
            currentItem_->time_ = time;
        }
        currentItem_->player_.reset();
    }
    // The engine goes first: it stops the pipeline and must not report to a half-gone player.
    engine_.reset();
    endPendingSeek(false);
}

void Player::setRate(float rate) {
    if (!std::isfinite(rate)) {
        return;
    }
    rate_ = rate;
    engine_->setRate(rate);
}

void Player::setMuted(bool muted) {
    muted_ = muted;
    engine_->setMuted(muted);
}

void Player::setVolume(float volume) {
    volume_ = std::isfinite(volume) ? std::clamp(volume, 0.0f, 1.0f) : volume_;
    engine_->setVolume(volume_);
}

void Player::replaceCurrentItem(std::shared_ptr<PlayerItem> item) {
    if (item == currentItem_) {
        return;
    }
    endPendingSeek(false);
    if (item) {
        // An item plays in one player at a time: it leaves the one it was in.
        auto other = item->player_.lock();
        if (other && other.get() != this && other->currentItem_ == item) {
            other->replaceCurrentItem(nullptr);
        }
    }
    if (currentItem_) {
        currentItem_->time_ = currentItem_->currentTime();
        currentItem_->player_.reset();
    }
    currentItem_ = std::move(item);
    ++itemGeneration_;
    if (currentItem_) {
        currentItem_->player_ = weak_from_this();
    }
    engine_->setItem(currentItem_);
    for (auto& [id, observer] : periodicObservers_) {
        observer.nextBoundary = 0;
    }
    for (const auto& entry : periodicObservers_) {
        schedulePeriodic(entry.first);
    }
}

MediaTime Player::currentTime() const {
    return currentItem_ ? currentItem_->currentTime() : MediaTime::zero();
}

void Player::seek(MediaTime time, SeekCompletion completion) {
    seek(time, MediaTime::positiveInfinity(), MediaTime::positiveInfinity(), std::move(completion));
}

void Player::seek(MediaTime time, MediaTime toleranceBefore, MediaTime toleranceAfter,
                  SeekCompletion completion) {
    endPendingSeek(false);
    if (!currentItem_ || !time.isNumeric()) {
        if (completion) {
            DispatchQueue::main()->async(
                [completion = std::move(completion)] { completion(false); });
        }
        return;
    }
    const std::uint64_t id = ++lastSeekId_;
    pendingSeekId_ = id;
    pendingSeekCompletion_ = std::move(completion);
    engine_->seek(id, time, toleranceBefore, toleranceAfter);
}

void Player::endPendingSeek(bool finished) {
    if (!pendingSeekId_) {
        return;
    }
    pendingSeekId_.reset();
    if (auto completion = std::exchange(pendingSeekCompletion_, nullptr)) {
        DispatchQueue::main()->async(
            [completion = std::move(completion), finished] { completion(finished); });
    }
}

Player::TimeObserverToken Player::addPeriodicTimeObserver(MediaTime interval,
                                                          std::shared_ptr<DispatchQueue> queue,
                                                          TimeObserverBlock block) {
    const std::uint64_t id = ++lastObserverId_;
    PeriodicObserver observer;
    const double seconds = interval.seconds();
    observer.interval = std::isfinite(seconds) && seconds > 0 ? seconds : 0.5;
    observer.queue = queue ? std::move(queue) : DispatchQueue::main();
    observer.block = std::make_shared<TimeObserverBlock>(std::move(block));
    periodicObservers_.emplace(id, std::move(observer));
    schedulePeriodic(id);
    return TimeObserverToken{id};
}

void Player::removeTimeObserver(const TimeObserverToken& token) {
    auto found = periodicObservers_.find(token.id);
    if (found == periodicObservers_.end()) {
        return;
    }
    found->second.active->store(false);
    if (found->second.pending) {
        found->second.pending->cancel();
    }
    periodicObservers_.erase(found);
}

void Player::invoke(const PeriodicObserver& observer, MediaTime time) {
    // Not called once the observer is removed, the player is gone or has another item.
    observer.queue->async([weakSelf = weak_from_this(), generation = itemGeneration_.load(),
                           active = observer.active, block = observer.block, time] {
        auto self = weakSelf.lock();
        if (self && active->load() && self->itemGeneration_.load() == generation) {
            (*block)(time);
        }
    });
}

void Player::firePeriodicObservers() {
    if (!currentItem_) {
        return;
    }
    const MediaTime time = currentTime();
    for (auto& [id, observer] : periodicObservers_) {
        invoke(observer, time);
    }
    for (const auto& entry : periodicObservers_) {
        schedulePeriodic(entry.first);
    }
}

void Player::schedulePeriodic(std::uint64_t id) {
    auto found = periodicObservers_.find(id);
    if (found == periodicObservers_.end()) {
        return;
    }
    auto& observer = found->second;
    if (observer.pending) {
        observer.pending->cancel();
        observer.pending.reset();
    }
    if (!currentItem_ || rate_ <= 0 || timeControlStatus_ != TimeControlStatus::playing) {
        return;
    }
    const double now = currentTime().seconds();
    if (!std::isfinite(now)) {
        return;
    }
    if (!(observer.nextBoundary > now) || observer.nextBoundary - now > observer.interval) {
        observer.nextBoundary =
            (std::floor(now / observer.interval + 1e-6) + 1.0) * observer.interval;
    }
    const double delay = std::max((observer.nextBoundary - now) / rate_, 0.001);
    observer.pending = Scheduler::standard()->schedule(
        Scheduler::Duration(delay), DispatchQueue::main(), [weakSelf = weak_from_this(), id] {
            if (auto self = weakSelf.lock()) {
                self->onPeriodicTimer(id);
            }
        });
}

void Player::onPeriodicTimer(std::uint64_t id) {
    auto found = periodicObservers_.find(id);
    if (found == periodicObservers_.end() || !currentItem_) {
        return;
    }
    auto& observer = found->second;
    observer.pending.reset();
    const MediaTime time = currentTime();
    if (time.seconds() + boundarySlack >= observer.nextBoundary) {
        invoke(observer, time);
        observer.nextBoundary += observer.interval;
    }
    schedulePeriodic(id);
}

void Player::setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
    engine_->setVideoOutput(id, output);
}

void Player::redrawVideoOutput(std::uint64_t id) {
    engine_->redrawVideoOutput(id);
}

Observation Player::observeStatus(std::function<void(Status)> handler) {
    return statusObservers_.add(std::move(handler));
}

Observation Player::observeTimeControlStatus(std::function<void(TimeControlStatus)> handler) {
    return timeControlObservers_.add(std::move(handler));
}

void Player::updateStatus(const MediaEngineKey&, Status status, std::optional<Error> error) {
    status_ = status;
    error_ = std::move(error);
    statusObservers_.notify(status);
}

void Player::updateTimeControlStatus(const MediaEngineKey&, TimeControlStatus status,
                                     std::optional<WaitingReason> reason) {
    const bool changed = status != timeControlStatus_;
    timeControlStatus_ = status;
    waitingReason_ =
        status == TimeControlStatus::waitingToPlayAtSpecifiedRate ? reason : std::nullopt;
    timeControlObservers_.notify(status);
    if (changed && (status == TimeControlStatus::playing || status == TimeControlStatus::paused)) {
        firePeriodicObservers();
    }
}

void Player::updateRate(const MediaEngineKey&, float rate) {
    rate_ = rate;
}

void Player::finishSeek(const MediaEngineKey& key, std::uint64_t id) {
    if (pendingSeekId_ != id) {
        return;
    }
    endPendingSeek(true);
    timeDidJump(key);
}

void Player::timeDidJump(const MediaEngineKey&) {
    for (auto& [id, observer] : periodicObservers_) {
        observer.nextBoundary = 0;
    }
    firePeriodicObservers();
}

}  // namespace zarvo
