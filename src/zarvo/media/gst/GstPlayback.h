#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/AccessLogRecorder.h"
#include "zarvo/media/gst/BusStatusMapper.h"
#include "zarvo/media/gst/DecoderThreads.h"
#include "zarvo/media/gst/DemuxerVariantLimiter.h"
#include "zarvo/media/gst/PlaybackCounters.h"
#include "zarvo/media/gst/PlaybinPipeline.h"
#include "zarvo/media/gst/ProgramDateTimeline.h"
#include "zarvo/media/gst/SeekController.h"
#include "zarvo/media/gst/StreamSelector.h"
#include "zarvo/media/gst/SubtitleStyling.h"
#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/PlayerItemStatistics.h"
#include "zarvo/media/model/VideoOutput.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

class Player;
class PlayerItem;

// One player's playback on playbin3: the pipeline (made once, and again only after an item left
// it half set up), the current item's resource session, and what the bus says, turned into the
// player's and the item's statuses. Main thread, but for the handlers of GStreamer's streaming
// threads, which share only the stream selector, the subtitle styling and what mutex_ guards.
class GstPlayback : public std::enable_shared_from_this<GstPlayback>,
                    public SeekController::Pipeline,
                    public PlaybinPipeline::Listener {
public:
    static std::shared_ptr<GstPlayback> make(std::weak_ptr<Player> player, MediaEngineKey key);
    struct Token {
        explicit Token() = default;
    };
    GstPlayback(Token, std::weak_ptr<Player> player, MediaEngineKey key);

    void shutdown();

    // PlayerEngine.
    void setItem(const std::shared_ptr<PlayerItem>& item);
    void setRate(float rate);
    void setMuted(bool muted);
    void setVolume(float volume);
    void seek(std::uint64_t id, MediaTime time, MediaTime before, MediaTime after);
    MediaTime currentTime() const;
    std::optional<Date> currentDate() const;
    void mediaSelectionChanged();
    void textStyleRulesChanged();
    void variantPreferencesChanged() {
        if (item_) {
            limiter_->set(*item_);
        }
    }
    std::optional<PlayerItemStatistics> statistics() const {
        return item_ ? std::optional(counters_.now()) : std::nullopt;
    }
    void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output);
    void redrawVideoOutput(std::uint64_t id);

private:
    class ItemObserver;

    // SeekController::Pipeline.
    guint32 sendFlushingSeek(MediaTime time, bool exact) override;
    MediaTime position() override { return currentPosition(); }
    void seekFinished(std::uint64_t id) override;
    void heldSeekSent() override;

    // PlaybinPipeline::Listener.
    void busMessage(GstMessage* message) override;
    void syncMessage(GstMessage* message) override;
    void videoBuffer() override;
    void elementSetUp(GstElement* element) override {
        subtitles_.adopt(element);
        limiter_->adopt(element);
        DecoderThreads::adopt(element);
    }

    // What the current item's resource session learns.
    void playlistServed(const ResourceSession::PlaylistServed& served);
    void transferred(const ResourceSession::Transfer& transfer);

    // When `needed`, seeks to where playback stands, so that every stream plays at playRate_.
    void seekAtPlayRate(bool needed) {
        if (needed && prerolled_ && pipeline_ && !seeks_->hasPending()) {
            seeks_->request({std::nullopt, MediaTime::invalid(), true});
        }
    }
    bool ensurePipeline();
    void releasePipeline();
    void closeResourcesThenStop();
    void tearDownItem();
    void selectionsLoaded(const std::optional<Error>& error);
    MediaTime currentPosition() const;
    void updateSeekableRanges();
    void updateDuration();
    void applyTargetState();
    void reportTimeControl();
    void failItem(const Error& error);
    void prerolled();
    void ended();
    void bufferingChanged(bool buffering);
    void failPipeline(GstMessage* error);

    const std::weak_ptr<Player> player_;
    const MediaEngineKey key_;
    std::shared_ptr<SeekController> seeks_;
    std::unique_ptr<PlaybinPipeline> pipeline_;
    std::optional<Error> pipelineError_;
    bool announcedReady_ = false;  // the player is ready once its first pipeline is

    std::shared_ptr<PlayerItem> item_;
    std::shared_ptr<ItemObserver> itemObserver_;  // of the current item's resource session
    std::shared_ptr<ResourceSession> resources_;
    std::map<std::uint64_t, VideoOutput> outputs_;  // the windows views gave, by id
    float rate_ = 0;
    float playRate_ = 1;
    bool muted_ = false;
    float volume_ = 1;
    bool prerolled_ = false;
    bool buffering_ = false;
    bool ended_ = false;
    bool itemFailed_ = false;
    GstState currentState_ = GST_STATE_NULL;
    GstState pendingState_ = GST_STATE_VOID_PENDING;
    GstState requestedState_ = GST_STATE_VOID_PENDING;
    mutable MediaTime lastPosition_ = MediaTime::zero();
    BusStatusMapper::TimeControl reported_;
    ProgramDateTimeline timeline_;
    bool startRead_ = false;  // the first media playlist was read for its start
    std::optional<SeekController::Seek> startSeek_;  // to its start point, at the first preroll
    AccessLogRecorder accessLog_;
    bool selectionsLoaded_ = false;         // the asset has read its master
    std::optional<Error> pipelineFailure_;  // reported once it has, unless the asset failed
    // Shared with GStreamer's threads: these two lock themselves.
    SubtitleStyling subtitles_;
    StreamSelector streams_;
    mutable std::mutex mutex_;
    bool firstFrameSeen_ = false;
    std::uint64_t itemGeneration_ = 0;  // counts the items set, for news of streaming threads
    // These two lock themselves too: the demuxer is set up, and the frames reaching the sink
    // are counted, on streaming threads.
    const std::shared_ptr<DemuxerVariantLimiter> limiter_ =
        std::make_shared<DemuxerVariantLimiter>();
    PlaybackCounters counters_;
};

}  // namespace zarvo
