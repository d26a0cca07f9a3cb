#pragma once

#include <memory>

#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/PlayerEngine.h"

namespace zarvo {

class GstPlayback;
class Player;

// A player's playbin3 pipeline (GstPlayback does the work; callbacks hold it weakly, so it
// outlives this object while they run). Bus messages arrive on the main context and become the
// statuses of the Player and of its current item; work that GStreamer does on its own threads
// (the first frame, stream collections) reaches them through the main queue.
class GstPlayerEngine : public PlayerEngine {
public:
    GstPlayerEngine(const std::shared_ptr<Player>& player, const MediaEngineKey& key);
    ~GstPlayerEngine() override;

    void setItem(const std::shared_ptr<PlayerItem>& item) override;
    void setRate(float rate) override;
    void setMuted(bool muted) override;
    void setVolume(float volume) override;
    void seek(std::uint64_t id, MediaTime time, MediaTime toleranceBefore,
              MediaTime toleranceAfter) override;
    MediaTime currentTime() const override;
    std::optional<Date> currentDate() const override;
    void mediaSelectionChanged() override;
    void textStyleRulesChanged() override;
    void variantPreferencesChanged() override;
    std::optional<PlayerItemStatistics> statistics() const override;
    void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) override;
    void redrawVideoOutput(std::uint64_t id) override;

private:
    const std::shared_ptr<GstPlayback> playback_;
};

}  // namespace zarvo
