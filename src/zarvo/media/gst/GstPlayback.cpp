#include "zarvo/media/gst/GstPlayback.h"

#include <algorithm>
#include <chrono>

#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ProcessInfo.h"

namespace zarvo {

// What the session learns reaches the playback through an observer of one item alone: news
// still on its way when the next item comes is dropped with the observer.
class GstPlayback::ItemObserver final : public ResourceSession::Observer {
public:
    explicit ItemObserver(std::weak_ptr<GstPlayback> playback) : playback_(std::move(playback)) {}
    void playlistServed(const ResourceSession::PlaylistServed& served) override {
        if (auto playback = playback_.lock()) {
            playback->playlistServed(served);
        }
    }
    void transferred(const ResourceSession::Transfer& transfer) override {
        if (auto playback = playback_.lock()) {
            playback->transferred(transfer);
        }
    }
    void failed(const Error& error) override {
        if (auto playback = playback_.lock()) {
            playback->failItem(error);
        }
    }

private:
    const std::weak_ptr<GstPlayback> playback_;
};

std::shared_ptr<GstPlayback> GstPlayback::make(std::weak_ptr<Player> player, MediaEngineKey key) {
    auto playback = std::make_shared<GstPlayback>(Token{}, std::move(player), key);
    playback->seeks_ =
        std::make_shared<SeekController>(std::weak_ptr<SeekController::Pipeline>(playback));
    return playback;
}

GstPlayback::GstPlayback(Token, std::weak_ptr<Player> player, MediaEngineKey key)
    : player_(std::move(player)), key_(key) {}

void GstPlayback::shutdown() {
    tearDownItem();
    releasePipeline();
}

void GstPlayback::setItem(const std::shared_ptr<PlayerItem>& item) {
    const bool leftHalfMade = item_ && !prerolled_;
    tearDownItem();
    if (leftHalfMade) {
        // playbin3 (1.22) stopped before its sinks were set up for every stream keeps a
        // stream-synchronizer pad of the half-made set-up, and the next item's set-up then
        // aborts the process on a pad name in use: that pipeline is not used again.
        releasePipeline();
    }
    item_ = item;
    if (!item_ || !ensurePipeline()) {
        reportTimeControl();
        return;
    }
    auto asset = item_->asset();
    auto loader = std::static_pointer_cast<AssetLoader>(asset->engineState(key_));
    if (!loader) {
        loader = AssetLoader::start(asset, key_);
        asset->setEngineState(key_, loader);
    }
    itemObserver_ = std::make_shared<ItemObserver>(weak_from_this());
    resources_ = ResourceSession::open(asset, loader, itemObserver_, DispatchQueue::main(),
                                       limiter_->reset(*item_));
    seeks_->reset(resources_->transferGate());
    {
        std::lock_guard lock(mutex_);
        ++itemGeneration_;
    }
    streams_.reset();
    subtitles_.setRules(item_->textStyleRules());
    g_object_set(pipeline_->element(), "uri", resources_->entryUrl().c_str(), nullptr);
    requestedState_ = GST_STATE_VOID_PENDING;
    applyTargetState();
    asset->loadMediaSelections(DispatchQueue::main(), [weakSelf = weak_from_this(),
                                                       weakItem = std::weak_ptr<PlayerItem>(item_)](
                                                          const std::optional<Error>& error) {
        auto self = weakSelf.lock();
        auto item = weakItem.lock();
        if (self && item && item == self->item_) {
            self->selectionsLoaded(error);
        }
    });
    reportTimeControl();
}

void GstPlayback::selectionsLoaded(const std::optional<Error>& error) {
    selectionsLoaded_ = true;
    if (error) {
        failItem(*error);
        return;
    }
    if (auto failure = std::exchange(pipelineFailure_, std::nullopt)) {
        failItem(*failure);
        return;
    }
    mediaSelectionChanged();
}

void GstPlayback::setRate(float rate) {
    const bool rateChanged = rate > 0 && playRate_ != rate;
    rate_ = rate;
    if (rate > 0) {
        playRate_ = rate;
        ended_ = false;
    }
    if (rateChanged && prerolled_ && pipeline_ && !seeks_->hasPending()) {
        seeks_->request({std::nullopt, MediaTime::invalid(), true});
    }
    applyTargetState();
    reportTimeControl();
}

void GstPlayback::setMuted(bool muted) {
    muted_ = muted;
    if (pipeline_) {
        g_object_set(pipeline_->element(), "mute", muted ? TRUE : FALSE, nullptr);
    }
}

void GstPlayback::setVolume(float volume) {
    volume_ = volume;
    if (pipeline_) {
        g_object_set(pipeline_->element(), "volume", static_cast<gdouble>(volume), nullptr);
    }
}

void GstPlayback::seek(std::uint64_t id, MediaTime time, MediaTime before, MediaTime after) {
    seeks_->setTarget(time);
    const bool exact = before == MediaTime::zero() && after == MediaTime::zero();
    ended_ = false;
    if (!prerolled_ || !pipeline_) {
        seeks_->defer({id, time, exact});
        reportTimeControl();
        return;
    }
    seeks_->request({id, time, exact});
    applyTargetState();
    reportTimeControl();
}

MediaTime GstPlayback::currentTime() const {
    if (!item_ || !pipeline_) {
        return MediaTime::invalid();
    }
    // Before the item is ready, the only seek in flight is the one to its start point.
    if (seeks_->seeking() || (!prerolled_ && seeks_->inFlight())) {
        return seeks_->target();
    }
    return currentPosition();
}

std::optional<Date> GstPlayback::currentDate() const {
    const MediaTime time = currentTime();
    if (!time.isNumeric()) {
        return std::nullopt;
    }
    return timeline_.dateAt(time.seconds());
}

void GstPlayback::mediaSelectionChanged() {
    if (!item_ || !pipeline_) {
        return;
    }
    const auto wanted = StreamSelection::wantedBy(*item_);
    if (streams_.select(wanted)) {
        // A text stream stays selected when subtitles are turned off: the overlay hides them.
        subtitles_.setShown(wanted.text.has_value());
        seekAtPlayRate(playRate_ != 1.0f);  // a rendition switched in starts at rate 1
    }
}

void GstPlayback::textStyleRulesChanged() {
    subtitles_.setRules(item_ ? item_->textStyleRules() : std::vector<TextStyleRule>{});
}

void GstPlayback::setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
    if (output) {
        outputs_[id] = *output;
    } else {
        outputs_.erase(id);
    }
    if (pipeline_) {
        pipeline_->setOutput(id, output);
    }
}

void GstPlayback::redrawVideoOutput(std::uint64_t id) {
    if (pipeline_) {
        pipeline_->redrawOutput(id);
    }
}

void GstPlayback::playlistServed(const ResourceSession::PlaylistServed& served) {
    if (!item_) {
        return;
    }
    using Kind = ResourceSession::Kind;
    if (served.kind == Kind::master && served.info.isMasterPlaylist) {
        accessLog_.masterServed(served.info);
        item_->updateVariants(key_, VariantLimits::variantsOf(served.info));
        return;
    }
    if (served.kind == Kind::renditionPlaylist) {
        return;
    }
    // The main media playlist: the asset's own URL when it has no master.
    if (!std::exchange(startRead_, true)) {
        startSeek_ = SeekController::toStartOf(served.info);
        if (prerolled_) {  // the pipeline prerolled before this news came: it goes there now
            seeks_->startAt(std::exchange(startSeek_, std::nullopt));
        }
        applyTargetState();
    }
    timeline_.add(served.info.segments);
    const double position = currentPosition().isNumeric() ? currentPosition().seconds() : 0;
    if (accessLog_.variantServed(
            served.url, AccessLogRecorder::playbackType(item_->asset()->url(), served.info),
            position)) {
        item_->updateAccessLog(key_, accessLog_.events(), true);
    }
    if (const auto& collectors = item_->metadataCollectors(); !collectors.empty()) {
        const auto groups = ProgramDateTimeline::metadataGroups(served.info.dateRanges);
        for (const auto& collector : collectors) {
            collector->collect(key_, groups);
        }
    }
    updateSeekableRanges();
}

void GstPlayback::transferred(const ResourceSession::Transfer& transfer) {
    if (!item_ || accessLog_.empty()) {
        return;
    }
    using Kind = ResourceSession::Kind;
    if (transfer.kind != Kind::segment && transfer.kind != Kind::initializationSection) {
        return;
    }
    const bool announce = accessLog_.transferred(transfer);
    item_->updateAccessLog(key_, accessLog_.events(), announce);
}

guint32 GstPlayback::sendFlushingSeek(MediaTime time, bool exact) {
    return pipeline_ ? pipeline_->seek(time, exact, playRate_) : GST_SEQNUM_INVALID;
}

void GstPlayback::seekFinished(std::uint64_t id) {
    lastPosition_ = seeks_->target();
    if (auto player = player_.lock()) {
        player->finishSeek(key_, id);
    }
}

void GstPlayback::heldSeekSent() {
    applyTargetState();
    reportTimeControl();
}

bool GstPlayback::ensurePipeline() {
    if (pipeline_) {
        return true;
    }
    if (pipelineError_) {
        return false;
    }
    auto player = player_.lock();
    auto made = PlaybinPipeline::make(weak_from_this(), {volume_, muted_, outputs_});
    if (auto* error = std::get_if<Error>(&made)) {
        pipelineError_ = *error;
        if (player) {
            player->updateStatus(key_, Player::Status::failed, *error);
        }
        return false;
    }
    pipeline_ = std::get<std::unique_ptr<PlaybinPipeline>>(std::move(made));
    if (player && !std::exchange(announcedReady_, true)) {
        player->updateStatus(key_, Player::Status::readyToPlay);
    }
    return true;
}

void GstPlayback::releasePipeline() {
    pipeline_.reset();
    subtitles_.forgetOverlays();
}

void GstPlayback::closeResourcesThenStop() {
    // Closing answers every request the demuxer waits on at once; it is stopped once it has
    // read them, as it cannot be stopped safely while it waits for a playlist or a key.
    if (resources_) {
        resources_->close();
        resources_->awaitAnswersRead(std::chrono::seconds(1));
    }
    if (pipeline_) {
        pipeline_->stop();
    }
}

void GstPlayback::tearDownItem() {
    closeResourcesThenStop();
    resources_.reset();
    itemObserver_.reset();
    accessLog_.setPlaying(false);
    if (auto last = counters_.reset(); item_) {  // startup is timed from here
        item_->updateStatistics(key_, last);
    }
    // The collection and its demuxer go with the item that they played.
    streams_.reset();
    item_.reset();
    prerolled_ = false;
    buffering_ = false;
    ended_ = false;
    itemFailed_ = false;
    seeks_->reset();
    {
        std::lock_guard lock(mutex_);
        firstFrameSeen_ = false;
    }
    selectionsLoaded_ = false;
    pipelineFailure_.reset();
    lastPosition_ = MediaTime::zero();
    timeline_.reset();
    startRead_ = false;
    startSeek_.reset();
    accessLog_ = AccessLogRecorder();
    requestedState_ = GST_STATE_VOID_PENDING;
    currentState_ = GST_STATE_NULL;
    pendingState_ = GST_STATE_VOID_PENDING;
}

MediaTime GstPlayback::currentPosition() const {
    if (pipeline_ && currentState_ >= GST_STATE_PAUSED) {
        lastPosition_ = pipeline_->position().value_or(lastPosition_);
    }
    return lastPosition_;
}

void GstPlayback::updateSeekableRanges() {
    if (!item_ || !pipeline_ || currentState_ < GST_STATE_PAUSED) {
        return;
    }
    std::vector<MediaTimeRange> ranges;
    if (auto range = pipeline_->seekableRange()) {
        ranges.push_back(*range);
    }
    item_->updateSeekableTimeRanges(key_, std::move(ranges));
}

void GstPlayback::updateDuration() {
    const auto duration = pipeline_ ? pipeline_->duration() : std::nullopt;
    item_->updateDuration(key_, duration.value_or(MediaTime::indefinite()));
}

void GstPlayback::applyTargetState() {
    if (!pipeline_ || !item_ || itemFailed_) {
        return;
    }
    // Nothing plays before the item has prerolled and stands at its start point. A pipeline
    // asked for PLAYING while it prerolls, then for PAUSED (buffering) and PLAYING again, can
    // commit PAUSED in between and then never reach PLAYING.
    const bool starting = startSeek_ || !prerolled_;
    const GstState target =
        rate_ > 0 && !buffering_ && !ended_ && !starting ? GST_STATE_PLAYING : GST_STATE_PAUSED;
    if (target != requestedState_) {
        requestedState_ = target;
        // A change that completes at once posts its message later: count it done now, so that
        // a pause followed at once by play does not read the old state.
        if (gst_element_set_state(pipeline_->element(), target) == GST_STATE_CHANGE_SUCCESS) {
            currentState_ = target;
            pendingState_ = GST_STATE_VOID_PENDING;
        }
    }
}

void GstPlayback::reportTimeControl() {
    auto player = player_.lock();
    if (!player) {
        return;
    }
    const auto now = BusStatusMapper::timeControl(
        {rate_, itemFailed_ || ended_ || pipelineError_.has_value(), item_ != nullptr, prerolled_,
         seeks_->seeking(), buffering_, currentState_, pendingState_, reported_});
    accessLog_.setPlaying(now.status == Player::TimeControlStatus::playing);
    if (now == reported_) {
        return;
    }
    reported_ = now;
    player->updateTimeControlStatus(key_, now.status, now.reason);
}

void GstPlayback::failItem(const Error& error) {
    if (!item_ || itemFailed_) {
        return;
    }
    itemFailed_ = true;
    auto item = item_;
    closeResourcesThenStop();
    if (pipeline_) {
        currentState_ = GST_STATE_NULL;
        requestedState_ = GST_STATE_NULL;
    }
    seeks_->abandon();
    rate_ = 0;
    if (auto player = player_.lock()) {
        player->updateRate(key_, 0);
    }
    item->updateStatus(key_, PlayerItem::Status::failed, error);
    item->post(key_, PlayerItem::failedToPlayToEndTimeNotification,
               {{PlayerItem::failedToPlayToEndTimeErrorKey, error}});
    reportTimeControl();
}

void GstPlayback::prerolled() {
    // The playlist's start point first (unless the host has asked for a seek): the item is ready
    // once that seek has prerolled, and this runs again then.
    if (seeks_->startAt(std::exchange(startSeek_, std::nullopt))) {
        return;
    }
    prerolled_ = true;
    updateDuration();
    updateSeekableRanges();
    item_->updateStatus(key_, PlayerItem::Status::readyToPlay);
    if (!item_) {
        return;
    }
    if (seeks_->hasPending()) {
        seeks_->sendPending();
        return;
    }
    if (playRate_ != 1.0f) {
        seeks_->send(currentPosition(), true, std::nullopt);
    }
    if (auto player = player_.lock()) {
        player->timeDidJump(key_);
    }
}

void GstPlayback::ended() {
    ended_ = true;
    rate_ = 0;
    if (auto player = player_.lock()) {
        player->updateRate(key_, 0);
    }
    applyTargetState();
    item_->post(key_, PlayerItem::didPlayToEndTimeNotification);
    reportTimeControl();
}

void GstPlayback::bufferingChanged(bool buffering) {
    buffering_ = buffering;
    // A stall: playback that was playing has to wait for data.
    if (buffering && prerolled_ && reported_.status == Player::TimeControlStatus::playing) {
        accessLog_.stalled();
        counters_.stallStarted();
        item_->updateAccessLog(key_, accessLog_.events(), false);
        item_->post(key_, PlayerItem::playbackStalledNotification);
    } else if (auto stall = buffering ? std::nullopt : counters_.stallEnded()) {
        item_->post(key_, PlayerItem::playbackStallEndedNotification,
                    {{PlayerItem::stallDurationKey, *stall}});
    }
    applyTargetState();
    reportTimeControl();
}

void GstPlayback::busMessage(GstMessage* message) {
    if (!item_ && GST_MESSAGE_TYPE(message) != GST_MESSAGE_STATE_CHANGED) {
        return;
    }
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR:
            failPipeline(message);
            return;
        case GST_MESSAGE_EOS:
            ended();
            return;
        case GST_MESSAGE_STATE_CHANGED:
            if (GST_MESSAGE_SRC(message) == GST_OBJECT(pipeline_->element())) {
                // The message may be older than a change made since: read the state itself.
                gst_element_get_state(pipeline_->element(), &currentState_, &pendingState_, 0);
                reportTimeControl();
            }
            return;
        case GST_MESSAGE_ASYNC_DONE: {
            const guint32 seqnum = gst_message_get_seqnum(message);
            if (!prerolled_ && !seeks_->held()) {
                if (seeks_->takePreroll(seqnum, true)) {
                    prerolled();
                }
            } else if (seeks_->takePreroll(seqnum, false)) {
                seeks_->finish();
                updateSeekableRanges();
                seeks_->sendPending();
            }
            applyTargetState();
            reportTimeControl();
            return;
        }
        case GST_MESSAGE_BUFFERING: {
            gint percent = 100;
            gst_message_parse_buffering(message, &percent);
            if ((percent < 100) != buffering_) {
                bufferingChanged(percent < 100);
            }
            return;
        }
        case GST_MESSAGE_DURATION_CHANGED:
            if (prerolled_) {
                updateDuration();
            }
            return;
        case GST_MESSAGE_CLOCK_LOST:
            if (requestedState_ == GST_STATE_PLAYING) {
                gst_element_set_state(pipeline_->element(), GST_STATE_PAUSED);
                gst_element_set_state(pipeline_->element(), GST_STATE_PLAYING);
            }
            return;
        case GST_MESSAGE_LATENCY:
            gst_bin_recalculate_latency(GST_BIN(pipeline_->element()));
            return;
        default:
            counters_.busMessage(message, pipeline_->element());
            return;
    }
}

void GstPlayback::failPipeline(GstMessage* error) {
    if (pipeline_->isWindowElement(GST_MESSAGE_SRC(error))) {
        // A window that cannot be drawn into stays black; playback goes on.
        return;
    }
    auto failure =
        BusStatusMapper::failureOf(error, resources_ ? resources_->lastFailure() : std::nullopt);
    if (failure.missingElement) {
        if (auto player = player_.lock()) {
            player->updateStatus(key_, Player::Status::failed, failure.error);
        }
    } else if (!selectionsLoaded_) {
        // The asset reads the same master: when it cannot, its error is the cause.
        pipelineFailure_ = std::move(failure.error);
        return;
    }
    failItem(failure.error);
}

// On streaming threads: a new stream collection is kept and answered from the main thread.
void GstPlayback::syncMessage(GstMessage* message) {
    if (streams_.keep(message)) {
        DispatchQueue::main()->async([weakSelf = weak_from_this()] {
            if (auto self = weakSelf.lock()) {
                self->mediaSelectionChanged();
            }
        });
    }
}

void GstPlayback::videoBuffer() {
    counters_.videoFrame();
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(mutex_);
        if (std::exchange(firstFrameSeen_, true)) {
            return;
        }
        generation = itemGeneration_;
    }
    const double uptime = ProcessInfo::systemUptime();
    DispatchQueue::main()->async([weakSelf = weak_from_this(), uptime, generation] {
        auto self = weakSelf.lock();
        if (!self || !self->item_) {
            return;
        }
        {
            std::lock_guard lock(self->mutex_);
            if (self->itemGeneration_ != generation) {
                return;
            }
        }
        self->item_->post(self->key_, PlayerItem::firstVideoFrameNotification,
                          {{PlayerItem::firstVideoFrameUptimeKey, uptime}});
    });
}

}  // namespace zarvo
