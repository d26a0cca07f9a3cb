#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/PlayerEngine.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/VideoOutput.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Observation.h"
#include "zarvo/platform/ObserverList.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

class MediaEngine;

// Plays one item at a time. Used on the main thread; every handler, observation and
// notification runs there (periodic time observers on the queue they name).
class ZARVO_EXPORT Player : public std::enable_shared_from_this<Player> {
public:
    enum class Status { unknown = 0, readyToPlay = 1, failed = 2 };
    enum class TimeControlStatus { paused = 0, waitingToPlayAtSpecifiedRate = 1, playing = 2 };
    // Why a player that should play is waiting.
    enum class WaitingReason {
        toMinimizeStalls,         // buffering: the media has run out
        evaluatingBufferingRate,  // loading the item
        noItemToPlay,
        seeking,
    };
    // Identifies a periodic time observer for removeTimeObserver.
    struct TimeObserverToken {
        std::uint64_t id = 0;
        bool operator==(const TimeObserverToken&) const = default;
    };
    using TimeObserverBlock = std::function<void(MediaTime)>;
    using SeekCompletion = std::function<void(bool finished)>;

    // A player on the current media engine.
    static std::shared_ptr<Player> make();
    static std::shared_ptr<Player> make(const std::shared_ptr<MediaEngine>& engine);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Status status() const { return status_; }
    const std::optional<Error>& error() const { return error_; }
    TimeControlStatus timeControlStatus() const { return timeControlStatus_; }
    std::optional<WaitingReason> reasonForWaitingToPlay() const { return waitingReason_; }

    float rate() const { return rate_; }
    void setRate(float rate);
    void play() { setRate(1.0f); }
    void pause() { setRate(0.0f); }

    bool isMuted() const { return muted_; }
    void setMuted(bool muted);
    float volume() const { return volume_; }
    void setVolume(float volume);
    // Stored for hosts that ask; Linux has no external playback route.
    bool allowsExternalPlayback() const { return allowsExternalPlayback_; }
    void setAllowsExternalPlayback(bool allows) { allowsExternalPlayback_ = allows; }
    bool isExternalPlaybackActive() const { return false; }

    const std::shared_ptr<PlayerItem>& currentItem() const { return currentItem_; }
    // Makes `item` (or nothing) current; a seek still running ends as interrupted.
    void replaceCurrentItem(std::shared_ptr<PlayerItem> item);

    MediaTime currentTime() const;
    // Seeks with the default tolerances (the nearest key frame will do).
    void seek(MediaTime time, SeekCompletion completion = nullptr);
    // Seeks to within the tolerances around `time` (zero for both: exactly). The completion
    // runs on the main thread with true when the seek finished, false when a later seek or a
    // new item interrupted it.
    void seek(MediaTime time, MediaTime toleranceBefore, MediaTime toleranceAfter,
              SeekCompletion completion = nullptr);

    // Calls `block` on `queue` (main without one) each time the current item's time passes a
    // multiple of `interval` while playing, and when playback starts, stops or jumps.
    TimeObserverToken addPeriodicTimeObserver(MediaTime interval,
                                              std::shared_ptr<DispatchQueue> queue,
                                              TimeObserverBlock block);
    void removeTimeObserver(const TimeObserverToken& token);

    // Draws the video into `output` (none: stops drawing there); `id` names the output.
    void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output);
    // Draws the last picture again into output `id` (its window was uncovered).
    void redrawVideoOutput(std::uint64_t id);

    // New values only.
    Observation observeStatus(std::function<void(Status)> handler);
    Observation observeTimeControlStatus(std::function<void(TimeControlStatus)> handler);

    // Engine side.
    void updateStatus(const MediaEngineKey&, Status status, std::optional<Error> error = {});
    void updateTimeControlStatus(const MediaEngineKey&, TimeControlStatus status,
                                 std::optional<WaitingReason> reason = {});
    // The engine stopped on its own (the end of the item).
    void updateRate(const MediaEngineKey&, float rate);
    void finishSeek(const MediaEngineKey&, std::uint64_t id);
    // The position moved other than by playing (a seek landed, an item became ready).
    void timeDidJump(const MediaEngineKey&);
    PlayerEngine* engine(const MediaEngineKey&) const { return engine_.get(); }

private:
    struct PeriodicObserver {
        double interval = 0.5;
        std::shared_ptr<DispatchQueue> queue;
        std::shared_ptr<TimeObserverBlock> block;
        std::shared_ptr<std::atomic<bool>> active = std::make_shared<std::atomic<bool>>(true);
        std::shared_ptr<ScheduledWork> pending;
        double nextBoundary = 0;
    };
    struct Token {
        explicit Token() = default;
    };

public:
    explicit Player(Token) {}

private:
    friend class PlayerItem;
    void endPendingSeek(bool finished);
    // Calls every periodic observer now and schedules each one's next boundary.
    void firePeriodicObservers();
    void schedulePeriodic(std::uint64_t id);
    void onPeriodicTimer(std::uint64_t id);
    void invoke(const PeriodicObserver& observer, MediaTime time);

    std::unique_ptr<PlayerEngine> engine_;
    Status status_ = Status::unknown;
    std::optional<Error> error_;
    TimeControlStatus timeControlStatus_ = TimeControlStatus::paused;
    std::optional<WaitingReason> waitingReason_;
    float rate_ = 0;
    bool muted_ = false;
    float volume_ = 1;
    bool allowsExternalPlayback_ = true;
    std::shared_ptr<PlayerItem> currentItem_;
    // Counts the items made current: a time observed for one item and still on its way to an
    // observer's queue when the next item comes is dropped.
    std::atomic<std::uint64_t> itemGeneration_{0};

    std::uint64_t lastSeekId_ = 0;
    std::optional<std::uint64_t> pendingSeekId_;
    SeekCompletion pendingSeekCompletion_;

    std::uint64_t lastObserverId_ = 0;
    std::map<std::uint64_t, PeriodicObserver> periodicObservers_;

    ObserverList<Status> statusObservers_;
    ObserverList<TimeControlStatus> timeControlObservers_;
};

}  // namespace zarvo
