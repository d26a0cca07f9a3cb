#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/PlayerItemStatistics.h"
#include "zarvo/media/model/VideoOutput.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class PlayerItem;

// The machinery behind one Player: made by the MediaEngine, driven by the Player on the main
// thread. It reports back through the engine-side members of Player and PlayerItem.
class ZARVO_EXPORT PlayerEngine {
public:
    virtual ~PlayerEngine() = default;

    // The player's current item changed (nullptr: none).
    virtual void setItem(const std::shared_ptr<PlayerItem>& item) = 0;
    // 0 pauses; any other rate plays at that speed.
    virtual void setRate(float rate) = 0;
    virtual void setMuted(bool muted) = 0;
    virtual void setVolume(float volume) = 0;
    // Starts seek `id`. The engine ends it with Player::finishSeek unless a later seek or a
    // new item comes first (the player then ends it as interrupted).
    virtual void seek(std::uint64_t id, MediaTime time, MediaTime toleranceBefore,
                      MediaTime toleranceAfter) = 0;
    // The position of the current item on its timeline; invalid without one.
    virtual MediaTime currentTime() const = 0;
    // The programme date of the current position, when the stream dates its segments.
    virtual std::optional<Date> currentDate() const = 0;
    // The current item's media selection or text style rules changed.
    virtual void mediaSelectionChanged() = 0;
    virtual void textStyleRulesChanged() = 0;
    // The current item's variant limits or chosen variant changed.
    virtual void variantPreferencesChanged() {}
    // What the engine counts of the current item's playback; none when it counts nothing.
    virtual std::optional<PlayerItemStatistics> statistics() const { return std::nullopt; }
    // Draws the video into `output` as well (none: no longer); `id` names the output.
    virtual void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) = 0;
    // Draws the last picture into output `id` again.
    virtual void redrawVideoOutput(std::uint64_t id) = 0;
};

}  // namespace zarvo
