#include "zarvo/media/gst/GstPlayerEngine.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/AccessLogRecorder.h"
#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/GstPipelineSinks.h"
#include "zarvo/media/gst/ProgramDateTimeline.h"
#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ProcessInfo.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

namespace {

constexpr std::int32_t nanosecondTimescale = 1000000000;
// How far ahead of playback the demuxer downloads.
constexpr guint64 demuxBufferingTime = 10 * GST_SECOND;
// A flushing seek waits until segment bodies have been still this long (seconds), so that the
// demuxer has taken in every byte it read before the seek cancels its downloads; it goes out
// anyway after the longest hold. The transfers it cancels stay held for a fixed while longer,
// long enough for their connections to close.
constexpr double quietBeforeSeek = 0.06;
constexpr double longestSeekHold = 1.0;
constexpr double cancelledTransfersHold = 0.3;

MediaTime fromClockTime(gint64 nanoseconds) {
    return MediaTime(nanoseconds, nanosecondTimescale);
}

gint64 toClockTime(const MediaTime& time) {
    return static_cast<gint64>(std::llround(std::max(time.seconds(), 0.0) * 1e9));
}

// The streams to play out of a collection: every video stream, the audio stream of the chosen
// rendition (else the first), and a text stream: the chosen subtitles, else the one playing
// before, else the first. Subtitles stay selected even when none are wanted (they are then not
// drawn): hlsdemux2 stalls playback when a text stream is added while it plays.
struct WantedStreams {
    std::optional<MediaSelectionOption::Rendition> audio;
    std::optional<MediaSelectionOption::Rendition> text;
};

bool streamMatches(GstStream* stream, const char* prefix,
                   const MediaSelectionOption::Rendition& rendition) {
    const std::string id = gst_stream_get_stream_id(stream) ? gst_stream_get_stream_id(stream) : "";
    const std::string wanted = std::string(prefix) + rendition.name;
    return id == wanted || (id.size() > wanted.size() &&
                            id.compare(id.size() - wanted.size(), wanted.size(), wanted) == 0 &&
                            id[id.size() - wanted.size() - 1] == '/');
}

std::vector<std::string> chooseStreams(GstStreamCollection* collection, const WantedStreams& wanted,
                                       const std::vector<std::string>& before) {
    std::vector<std::string> chosen;
    GstStream* firstAudio = nullptr;
    GstStream* audio = nullptr;
    GstStream* firstText = nullptr;
    GstStream* text = nullptr;
    GstStream* previousText = nullptr;
    const guint count = gst_stream_collection_get_size(collection);
    for (guint i = 0; i < count; ++i) {
        GstStream* stream = gst_stream_collection_get_stream(collection, i);
        const char* id = gst_stream_get_stream_id(stream);
        if (id == nullptr) {
            continue;
        }
        const GstStreamType type = gst_stream_get_stream_type(stream);
        if (type & GST_STREAM_TYPE_VIDEO) {
            chosen.emplace_back(id);
        } else if (type & GST_STREAM_TYPE_AUDIO) {
            firstAudio = firstAudio ? firstAudio : stream;
            if (wanted.audio && !audio && streamMatches(stream, "audio-", *wanted.audio)) {
                audio = stream;
            }
        } else if (type & GST_STREAM_TYPE_TEXT) {
            firstText = firstText ? firstText : stream;
            if (wanted.text && !text && streamMatches(stream, "text-", *wanted.text)) {
                text = stream;
            }
            if (std::find(before.begin(), before.end(), id) != before.end()) {
                previousText = stream;
            }
        }
    }
    if (GstStream* pick = audio ? audio : firstAudio) {
        chosen.emplace_back(gst_stream_get_stream_id(pick));
    }
    if (GstStream* pick = text ? text : previousText ? previousText : firstText) {
        chosen.emplace_back(gst_stream_get_stream_id(pick));
    }
    return chosen;
}

// "Sans Bold Italic 27" from a text style.
std::string fontDescription(const std::vector<TextStyleRule>& rules) {
    std::string family = "Sans";
    double size = 100;
    bool bold = false;
    bool italic = false;
    for (const auto& rule : rules) {
        family = rule.fontFamilyName.value_or(family);
        size = rule.relativeFontSize.value_or(size);
        bold = rule.bold.value_or(bold);
        italic = rule.italic.value_or(italic);
    }
    constexpr double defaultPoints = 18;
    const int points = std::max(1, static_cast<int>(std::lround(defaultPoints * size / 100.0)));
    return family + (bold ? " Bold" : "") + (italic ? " Italic" : "") + " " +
           std::to_string(points);
}

guint argb(const TextStyleRule::Color& color) {
    auto channel = [](double value) {
        return static_cast<guint>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
    };
    return (channel(color.alpha) << 24) | (channel(color.red) << 16) | (channel(color.green) << 8) |
           channel(color.blue);
}

std::string playbackTypeOf(const UrlAsset& asset, const HlsPlaylistRewriter::Result& playlist) {
    if (asset.url().isFileUrl()) {
        return "FILE";
    }
    return playlist.hasEndList || playlist.playlistType == "VOD" ? "VOD" : "LIVE";
}

}  // namespace

class GstPlayerEngine::Playback : public std::enable_shared_from_this<Playback> {
public:
    Playback(std::weak_ptr<Player> player, MediaEngineKey key)
        : player_(std::move(player)), key_(key) {}

    void shutdown() {
        tearDownItem();
        releasePipeline();
    }

    // PlayerEngine, on the main thread.

    void setItem(const std::shared_ptr<PlayerItem>& item) {
        const bool leftHalfMade = item_ && !prerolled_;
        tearDownItem();
        if (leftHalfMade) {
            // playbin3 (1.22) stopped before its sinks were set up for every stream keeps a
            // stream-synchronizer pad of the half-made set-up, and the next item's set-up then
            // aborts the process on a pad name in use: that pipeline is not used again.
            releasePipeline();
        }
        item_ = item;
        if (!item_) {
            reportTimeControl();
            return;
        }
        if (!ensurePipeline()) {
            reportTimeControl();
            return;
        }
        auto asset = item_->asset();
        auto loader = std::static_pointer_cast<AssetLoader>(asset->engineState(key_));
        if (!loader) {
            loader = AssetLoader::start(asset, key_);
            asset->setEngineState(key_, loader);
        }
        // What the session learns reaches the playback through an observer of this item alone:
        // news still on its way when the next item comes is dropped with the observer.
        itemObserver_ = std::make_shared<ItemObserver>(weak_from_this());
        resources_ = ResourceSession::open(asset, loader, itemObserver_, DispatchQueue::main());
        {
            std::lock_guard lock(mutex_);
            ++itemGeneration_;
            wanted_ = wantedStreams();
            collection_.reset();
            collectionSource_.reset();
            selected_.clear();
            answered_.reset();
        }
        applyTextStyle();
        g_object_set(pipeline_.get(), "uri", resources_->entryUrl().c_str(), nullptr);
        requestedState_ = GST_STATE_VOID_PENDING;
        applyTargetState();
        asset->loadMediaSelections(
            DispatchQueue::main(),
            [weakSelf = weak_from_this(),
             weakItem = std::weak_ptr<PlayerItem>(item_)](const std::optional<Error>& error) {
                auto self = weakSelf.lock();
                auto item = weakItem.lock();
                if (!self || !item || item != self->item_) {
                    return;
                }
                self->selectionsLoaded_ = true;
                if (error) {
                    self->failItem(*error);
                    return;
                }
                if (auto failure = std::exchange(self->pipelineFailure_, std::nullopt)) {
                    self->failItem(*failure);
                    return;
                }
                self->mediaSelectionChanged();
            });
        reportTimeControl();
    }

    void setRate(float rate) {
        const bool rateChanged = rate > 0 && playRate_ != rate;
        rate_ = rate;
        if (rate > 0) {
            playRate_ = rate;
            ended_ = false;
        }
        if (rateChanged && prerolled_ && pipeline_ && !pendingSeek_) {
            requestSeek(PendingSeek{std::nullopt, MediaTime::invalid(), true});
        }
        applyTargetState();
        reportTimeControl();
    }

    void setMuted(bool muted) {
        muted_ = muted;
        if (pipeline_) {
            g_object_set(pipeline_.get(), "mute", muted ? TRUE : FALSE, nullptr);
        }
    }

    void setVolume(float volume) {
        volume_ = volume;
        if (pipeline_) {
            g_object_set(pipeline_.get(), "volume", static_cast<gdouble>(volume), nullptr);
        }
    }

    void seek(std::uint64_t id, MediaTime time, MediaTime before, MediaTime after) {
        seekTarget_ = time;
        const bool exact = before == MediaTime::zero() && after == MediaTime::zero();
        ended_ = false;
        if (!prerolled_ || !pipeline_) {
            pendingSeek_ = PendingSeek{id, time, exact};
            reportTimeControl();
            return;
        }
        requestSeek(PendingSeek{id, time, exact});
        applyTargetState();
        reportTimeControl();
    }

    MediaTime currentTime() const {
        if (!item_ || !pipeline_) {
            return MediaTime::invalid();
        }
        // Before the item is ready, the only seek in flight is the one to its start point.
        if (seekId_ || pendingSeek_ || (!prerolled_ && seekInFlight())) {
            return seekTarget_;
        }
        return currentPosition();
    }

    std::optional<Date> currentDate() const {
        const MediaTime time = currentTime();
        if (!time.isNumeric()) {
            return std::nullopt;
        }
        return timeline_.dateAt(time.seconds());
    }

    void mediaSelectionChanged() {
        if (!item_ || !pipeline_) {
            return;
        }
        GstRef<GstStreamCollection> collection;
        GstRef<GstElement> source;
        {
            std::lock_guard lock(mutex_);
            wanted_ = wantedStreams();
            if (collection_ && collectionSource_) {
                collection.reset(GST_STREAM_COLLECTION(gst_object_ref(collection_.get())));
                source.reset(GST_ELEMENT(gst_object_ref(collectionSource_.get())));
            }
        }
        if (collection) {
            selectStreams(collection.get(), source.get());
        }
    }

    void textStyleRulesChanged() { applyTextStyle(); }

    void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
        if (output) {
            outputs_[id] = *output;
        } else {
            outputs_.erase(id);
        }
        if (windows_) {
            windows_->set(id, output);
        }
    }

    void redrawVideoOutput(std::uint64_t id) {
        if (windows_) {
            windows_->redraw(id);
        }
    }

    // What the current item's resource session learns, on the main thread.

    void playlistServed(const ResourceSession::PlaylistServed& served) {
        if (!item_) {
            return;
        }
        using Kind = ResourceSession::Kind;
        if (served.kind == Kind::master && served.info.isMasterPlaylist) {
            accessLog_.masterServed(served.info);
            return;
        }
        if (served.kind == Kind::renditionPlaylist) {
            return;
        }
        // The main media playlist: the asset's own URL when it has no master.
        if (!std::exchange(startRead_, true)) {
            startSeek_ = startSeek(served.info);
            applyTargetState();
        }
        timeline_.add(served.info.segments);
        const double position = currentPosition().isNumeric() ? currentPosition().seconds() : 0;
        if (accessLog_.variantServed(served.url, playbackTypeOf(*item_->asset(), served.info),
                                     position)) {
            item_->updateAccessLog(key_, accessLog_.events(), true);
        }
        collectDateRanges(served.info.dateRanges);
        updateSeekableRanges();
    }

    void transferred(const ResourceSession::Transfer& transfer) {
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

private:
    class ItemObserver final : public ResourceSession::Observer {
    public:
        explicit ItemObserver(std::weak_ptr<Playback> playback) : playback_(std::move(playback)) {}
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
        const std::weak_ptr<Playback> playback_;
    };

    struct PendingSeek {
        std::optional<std::uint64_t> id;  // none for a seek that only changes the rate
        MediaTime time;                   // invalid: where playback is when the seek is sent
        bool exact = false;
    };

    void releasePipeline() {
        if (pipeline_) {
            gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
            GstRef<GstBus> bus(gst_element_get_bus(pipeline_.get()));
            gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
            if (busWatch_ != 0) {
                g_source_remove(busWatch_);
                busWatch_ = 0;
            }
            g_signal_handlers_disconnect_by_data(pipeline_.get(), this);
            removeProbe();
            pipeline_.reset();
        }
        windows_.reset();
    }

    bool ensurePipeline() {
        if (pipeline_) {
            return true;
        }
        if (pipelineError_) {
            return false;
        }
        auto player = player_.lock();
        GstPipelineSinks sinks;
        if (auto error = GstPipelineSinks::make(sinks)) {
            pipelineError_ = error;
            if (player) {
                player->updateStatus(key_, Player::Status::failed, error);
            }
            return false;
        }
        pipeline_ = std::move(sinks.playbin);
        windows_ = std::move(sinks.windows);
        if (windows_) {
            for (const auto& [id, output] : outputs_) {
                windows_->set(id, output);
            }
        }
        g_object_set(pipeline_.get(), "video-sink", sinks.videoSink.get(), "audio-sink",
                     sinks.audioSink.get(), "volume", static_cast<gdouble>(volume_), "mute",
                     muted_ ? TRUE : FALSE, nullptr);
        GstRef<GstPad> pad(gst_element_get_static_pad(sinks.videoSink.get(), "sink"));
        if (pad) {
            videoPad_ = std::move(pad);
            probe_ = gst_pad_add_probe(videoPad_.get(), GST_PAD_PROBE_TYPE_BUFFER, onVideoBuffer,
                                       this, nullptr);
        }
        GstRef<GstBus> bus(gst_element_get_bus(pipeline_.get()));
        busWatch_ = gst_bus_add_watch(bus.get(), onBusMessage, this);
        gst_bus_set_sync_handler(bus.get(), onSyncMessage, this, nullptr);
        g_signal_connect(pipeline_.get(), "element-setup", G_CALLBACK(onElementSetup), this);
        if (player && !std::exchange(announcedReady_, true)) {
            player->updateStatus(key_, Player::Status::readyToPlay);
        }
        return true;
    }

    void removeProbe() {
        if (videoPad_ && probe_ != 0) {
            gst_pad_remove_probe(videoPad_.get(), probe_);
        }
        probe_ = 0;
        videoPad_.reset();
    }

    void tearDownItem() {
        if (pipeline_) {
            gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
        }
        if (resources_) {
            resources_->close();
            resources_.reset();
        }
        itemObserver_.reset();
        accessLog_.setPlaying(false);
        {
            // The collection and its demuxer go with the item that they played.
            std::lock_guard lock(mutex_);
            collection_.reset();
            collectionSource_.reset();
        }
        item_.reset();
        prerolled_ = false;
        buffering_ = false;
        ended_ = false;
        itemFailed_ = false;
        seekId_.reset();
        pendingSeek_.reset();
        inFlightSeqnum_ = GST_SEQNUM_INVALID;
        heldSeek_.reset();
        ++heldSeekGeneration_;
        firstFrameSeen_ = false;
        selectionsLoaded_ = false;
        pipelineFailure_.reset();
        lastPosition_ = MediaTime::zero();
        seekTarget_ = MediaTime::zero();
        timeline_.reset();
        startRead_ = false;
        startSeek_.reset();
        accessLog_ = AccessLogRecorder();
        requestedState_ = GST_STATE_VOID_PENDING;
        currentState_ = GST_STATE_NULL;
        pendingState_ = GST_STATE_VOID_PENDING;
    }

    WantedStreams wantedStreams() const {
        WantedStreams wanted;
        if (!item_) {
            return wanted;
        }
        const auto& asset = *item_->asset();
        const MediaSelection selection = item_->currentMediaSelection();
        if (auto group = asset.mediaSelectionGroup(MediaCharacteristic::audible())) {
            if (auto option = selection.selectedMediaOption(*group)) {
                wanted.audio = option->rendition();
            }
        }
        if (auto group = asset.mediaSelectionGroup(MediaCharacteristic::legible())) {
            if (auto option = selection.selectedMediaOption(*group)) {
                wanted.text = option->rendition();
            }
        }
        return wanted;
    }

    // Sends the streams the item wants when they differ from those last sent for this collection.
    // The select-streams goes to the element that posted the collection (the adaptive demuxer),
    // not through playbin3. playbin3 (1.22) holds its own lock while the event travels down to
    // the demuxer and waits there for the demuxer's track lock; the demuxer, setting up its
    // outputs for the previous selection, holds that lock while the elements after it post
    // messages that playbin3 handles under its own lock. Quick switches then lock up the pipeline.
    void selectStreams(GstStreamCollection* collection, GstElement* source) {
        std::vector<std::string> chosen;
        {
            std::lock_guard lock(mutex_);
            chosen = chooseStreams(collection, wanted_, selected_);
            std::sort(chosen.begin(), chosen.end());
            // A text stream stays selected when subtitles are turned off: showing or hiding
            // them is the overlay's job, whether or not the streams change.
            if (subtitlesShown_ != wanted_.text.has_value()) {
                subtitlesShown_ = wanted_.text.has_value();
                ++styleVersion_;
            }
        }
        restyleOverlays();
        {
            std::lock_guard lock(mutex_);
            if (chosen == selected_ && collection == answered_.get()) {
                return;
            }
            selected_ = chosen;
            answered_.reset(GST_STREAM_COLLECTION(gst_object_ref(collection)));
        }
        GList* list = nullptr;
        for (const auto& id : chosen) {
            list = g_list_append(list, g_strdup(id.c_str()));
        }
        if (list != nullptr) {
            gst_element_send_event(source, gst_event_new_select_streams(list));
        }
        g_list_free_full(list, g_free);
    }

    void applyTextStyle() {
        {
            std::lock_guard lock(mutex_);
            style_ = item_ ? item_->textStyleRules() : std::vector<TextStyleRule>{};
            ++styleVersion_;
        }
        restyleOverlays();
    }

    // How subtitles look, as one snapshot: overlays are styled outside mutex_, because an overlay
    // calls back into this class (deep-element-added) while it holds its own lock.
    struct OverlayStyle {
        bool shown = false;
        std::vector<TextStyleRule> rules;
        std::uint64_t version = 0;
    };

    OverlayStyle overlayStyle() {
        std::lock_guard lock(mutex_);
        return {subtitlesShown_, style_, styleVersion_};
    }

    void restyleOverlays() {
        std::vector<GstRef<GstElement>> overlays;
        {
            std::lock_guard lock(mutex_);
            for (const auto& overlay : overlays_) {
                overlays.push_back(retainGst(overlay.get()));
            }
        }
        const OverlayStyle style = overlayStyle();
        for (const auto& overlay : overlays) {
            styleOverlay(overlay.get(), style);
        }
    }

    // Styles an overlay that has just appeared, again if the style changed meanwhile: the main
    // thread may have restyled the others with a newer style while this one took the older.
    void styleNewOverlay(GstElement* element) {
        {
            std::lock_guard lock(mutex_);
            overlays_.push_back(retainGst(element));
        }
        for (OverlayStyle style = overlayStyle();;) {
            styleOverlay(element, style);
            OverlayStyle now = overlayStyle();
            if (now.version == style.version) {
                return;
            }
            style = std::move(now);
        }
    }

    static void styleOverlay(GstElement* element, const OverlayStyle& style) {
        GstElementFactory* factory = gst_element_get_factory(element);
        const std::string name = factory ? GST_OBJECT_NAME(factory) : "";
        const gboolean silent = style.shown ? FALSE : TRUE;
        if (name == "subtitleoverlay") {
            g_object_set(element, "silent", silent, "font-desc",
                         fontDescription(style.rules).c_str(), nullptr);
            return;
        }
        if (name != "textoverlay") {
            return;
        }
        // Video never waits for subtitles: a rendition with nothing to say must not stall it.
        g_object_set(element, "wait-text", FALSE, "silent", silent, "font-desc",
                     fontDescription(style.rules).c_str(), nullptr);
        std::optional<TextStyleRule::Color> foreground;
        std::optional<TextStyleRule::Color> background;
        for (const auto& rule : style.rules) {
            foreground = rule.foregroundColor ? rule.foregroundColor : foreground;
            background = rule.backgroundColor ? rule.backgroundColor : background;
        }
        g_object_set(element, "color", foreground ? argb(*foreground) : 0xffffffffu, nullptr);
        g_object_set(element, "shaded-background", background ? TRUE : FALSE, nullptr);
        if (background) {
            g_object_set(
                element, "shading-value",
                static_cast<guint>(std::lround(std::clamp(background->alpha, 0.0, 1.0) * 255)),
                nullptr);
        }
    }

    void collectDateRanges(const std::vector<HlsPlaylistRewriter::DateRange>& ranges) {
        const auto& collectors = item_->metadataCollectors();
        if (collectors.empty()) {
            return;
        }
        std::vector<DateRangeMetadataGroup> groups;
        for (const auto& range : ranges) {
            if (!range.startDate) {
                continue;
            }
            DateRangeMetadataGroup group;
            group.identifier = range.id;
            group.classifyingLabel = range.classAttribute;
            group.startDate = *range.startDate;
            if (range.endDate) {
                group.endDate = range.endDate;
            } else if (range.duration) {
                group.endDate = range.startDate->addingTimeInterval(*range.duration);
            } else if (range.plannedDuration) {
                group.endDate = range.startDate->addingTimeInterval(*range.plannedDuration);
            }
            for (const auto& [name, value] : range.attributes) {
                static constexpr const char* described[] = {
                    "ID",         "CLASS", "START-DATE", "END-DATE", "DURATION", "PLANNED-DURATION",
                    "END-ON-NEXT"};
                if (std::find(std::begin(described), std::end(described), name) !=
                    std::end(described)) {
                    continue;
                }
                group.items.push_back(MetadataItem{"lsdr/" + name, name, value});
            }
            groups.push_back(std::move(group));
        }
        for (const auto& collector : collectors) {
            collector->collect(key_, groups);
        }
    }

    MediaTime currentPosition() const {
        gint64 position = 0;
        if (pipeline_ && currentState_ >= GST_STATE_PAUSED &&
            gst_element_query_position(pipeline_.get(), GST_FORMAT_TIME, &position) &&
            position >= 0) {
            lastPosition_ = fromClockTime(position);
        }
        return lastPosition_;
    }

    void updateSeekableRanges() {
        if (!item_ || !pipeline_ || currentState_ < GST_STATE_PAUSED) {
            return;
        }
        GstQueryRef query(gst_query_new_seeking(GST_FORMAT_TIME));
        gboolean seekable = FALSE;
        gint64 start = -1;
        gint64 end = -1;
        std::vector<MediaTimeRange> ranges;
        if (gst_element_query(pipeline_.get(), query.get())) {
            gst_query_parse_seeking(query.get(), nullptr, &seekable, &start, &end);
            if (seekable && start >= 0 && end > start) {
                ranges.push_back(MediaTimeRange{fromClockTime(start), fromClockTime(end - start)});
            }
        }
        item_->updateSeekableTimeRanges(key_, std::move(ranges));
    }

    void updateDuration() {
        gint64 duration = -1;
        const bool known =
            pipeline_ && gst_element_query_duration(pipeline_.get(), GST_FORMAT_TIME, &duration) &&
            duration > 0;
        item_->updateDuration(key_, known ? fromClockTime(duration) : MediaTime::indefinite());
    }

    // Where the first media playlist asks playback to begin (EXT-X-START), which the demuxer
    // does not do itself (it starts a live stream near its end). The pipeline's timeline
    // begins at that playlist's first segment.
    static std::optional<PendingSeek> startSeek(const HlsPlaylistRewriter::Result& playlist) {
        if (!playlist.start) {
            return std::nullopt;
        }
        double length = 0;
        for (const auto& segment : playlist.segments) {
            length += segment.duration;
        }
        const double offset = playlist.start->timeOffset;
        const double position =
            offset >= 0 ? std::min(offset, length) : std::max(length + offset, 0.0);
        return PendingSeek{std::nullopt, MediaTime::make(position, nanosecondTimescale),
                           playlist.start->precise};
    }

    // One flushing seek is in the pipeline at a time: a seek asked for meanwhile waits for it
    // to preroll and replaces any other one waiting (the adaptive demuxer cannot take a flush
    // while it is still restarting its downloads from the previous one).
    void requestSeek(PendingSeek seek) {
        if (seekInFlight()) {
            pendingSeek_ = seek;
            return;
        }
        if (seek.id) {
            seekId_ = seek.id;
        }
        sendSeek(seek.time.isNumeric() ? seek.time : currentPosition(), seek.exact, seek.id);
    }

    void sendPendingSeek() {
        if (pendingSeek_) {
            requestSeek(*std::exchange(pendingSeek_, std::nullopt));
        }
    }

    // The flushing seek that lands on `time` (or starts playing at a new rate there). While
    // segment bodies are moving it waits, with them held, until they have been still for a
    // moment (see TransferGate).
    void sendSeek(MediaTime time, bool exact, std::optional<std::uint64_t> id) {
        const auto gate = resources_ ? resources_->transferGate() : nullptr;
        if (!gate || gate->quietFor(quietBeforeSeek)) {
            sendSeekNow(time, exact, id);
            return;
        }
        gate->hold();
        heldSeek_ = HeldSeek{time, exact, id, Scheduler::standard()->uptime()};
        checkHeldSeek(++heldSeekGeneration_);
    }

    void checkHeldSeek(std::uint64_t generation) {
        DispatchQueue::main()->asyncAfter(
            quietBeforeSeek, [weakSelf = weak_from_this(), generation] {
                auto self = weakSelf.lock();
                if (!self || !self->heldSeek_ || generation != self->heldSeekGeneration_ ||
                    !self->resources_) {
                    return;
                }
                const auto gate = self->resources_->transferGate();
                const bool waitedLongEnough =
                    Scheduler::standard()->uptime() - self->heldSeek_->since >= longestSeekHold;
                if (!gate->quietFor(quietBeforeSeek) && !waitedLongEnough) {
                    self->checkHeldSeek(generation);
                    return;
                }
                const HeldSeek seek = *std::exchange(self->heldSeek_, std::nullopt);
                self->sendSeekNow(seek.time, seek.exact, seek.id);
                // The transfers the seek cancelled stay held a while longer, long enough for
                // their connections to close; those that start from now on pass.
                const auto point = gate->passNewTransfers();
                DispatchQueue::main()->asyncAfter(
                    cancelledTransfersHold, [weakGate = std::weak_ptr<TransferGate>(gate), point] {
                        if (auto gate = weakGate.lock()) {
                            gate->releaseUpTo(point);
                        }
                    });
                self->applyTargetState();
                self->reportTimeControl();
            });
    }

    bool seekInFlight() const { return inFlightSeqnum_ != GST_SEQNUM_INVALID || heldSeek_; }

    void sendSeekNow(MediaTime time, bool exact, std::optional<std::uint64_t> id) {
        const GstSeekFlags flags = static_cast<GstSeekFlags>(
            GST_SEEK_FLAG_FLUSH |
            (exact ? GST_SEEK_FLAG_ACCURATE : GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_NEAREST));
        GstEvent* event =
            gst_event_new_seek(playRate_, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET,
                               toClockTime(time), GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE);
        inFlightSeqnum_ = gst_event_get_seqnum(event);
        if (!gst_element_send_event(pipeline_.get(), event)) {
            // The pipeline refused the seek: it stays where it is, and the seek is over.
            inFlightSeqnum_ = GST_SEQNUM_INVALID;
            if (id) {
                finishSeek();
            }
        }
    }

    void finishSeek() {
        if (!seekId_) {
            return;
        }
        const std::uint64_t id = *seekId_;
        seekId_.reset();
        lastPosition_ = seekTarget_;
        if (auto player = player_.lock()) {
            player->finishSeek(key_, id);
        }
    }

    void applyTargetState() {
        if (!pipeline_ || !item_ || itemFailed_) {
            return;
        }
        // Nothing plays before the item stands at its start point.
        const bool starting = startSeek_ || (!prerolled_ && seekInFlight());
        const GstState target =
            rate_ > 0 && !buffering_ && !ended_ && !starting ? GST_STATE_PLAYING : GST_STATE_PAUSED;
        if (target != requestedState_) {
            requestedState_ = target;
            // A change that completes at once posts its message later: count it done now, so
            // that a pause followed at once by play does not read the old state.
            if (gst_element_set_state(pipeline_.get(), target) == GST_STATE_CHANGE_SUCCESS) {
                currentState_ = target;
                pendingState_ = GST_STATE_VOID_PENDING;
            }
        }
    }

    void reportTimeControl() {
        auto player = player_.lock();
        if (!player) {
            return;
        }
        using Status = Player::TimeControlStatus;
        using Reason = Player::WaitingReason;
        Status status = Status::waitingToPlayAtSpecifiedRate;
        std::optional<Reason> reason;
        if (rate_ <= 0 || itemFailed_ || ended_ || pipelineError_) {
            status = Status::paused;
        } else if (!item_) {
            reason = Reason::noItemToPlay;
        } else if (!prerolled_) {
            reason = Reason::evaluatingBufferingRate;
        } else if (seekId_ || pendingSeek_) {
            reason = Reason::seeking;
        } else if (buffering_) {
            reason = Reason::toMinimizeStalls;
        } else if (currentState_ == GST_STATE_PLAYING ||
                   (pendingState_ == GST_STATE_PLAYING && reported_ &&
                    reported_->first == Status::playing)) {
            // A pause undone before it took effect leaves the pipeline on its way back to
            // playing: that is no wait.
            status = Status::playing;
        } else {
            reason = Reason::evaluatingBufferingRate;
        }
        accessLog_.setPlaying(status == Status::playing);
        if (reported_ && reported_->first == status && reported_->second == reason) {
            return;
        }
        reported_ = std::make_pair(status, reason);
        player->updateTimeControlStatus(key_, status, reason);
    }

    void failItem(const Error& error) {
        if (!item_ || itemFailed_) {
            return;
        }
        itemFailed_ = true;
        auto item = item_;
        if (resources_) {
            resources_->close();
        }
        if (pipeline_) {
            gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
            currentState_ = GST_STATE_NULL;
            requestedState_ = GST_STATE_NULL;
        }
        if (seekId_) {
            finishSeek();
        }
        pendingSeek_.reset();
        rate_ = 0;
        if (auto player = player_.lock()) {
            player->updateRate(key_, 0);
        }
        item->updateStatus(key_, PlayerItem::Status::failed, error);
        item->post(key_, PlayerItem::failedToPlayToEndTimeNotification,
                   {{PlayerItem::failedToPlayToEndTimeErrorKey, error}});
        reportTimeControl();
    }

    void prerolled() {
        // The playlist's start point first (unless the host has asked for a seek): the item is
        // ready once that seek has prerolled, and this runs again then.
        if (auto start = std::exchange(startSeek_, std::nullopt);
            start && !pendingSeek_ &&
            std::fabs(start->time.seconds() - currentPosition().seconds()) > 0.001) {
            seekTarget_ = start->time;
            sendSeek(start->time, start->exact, std::nullopt);
            if (seekInFlight()) {
                return;
            }
        }
        prerolled_ = true;
        updateDuration();
        updateSeekableRanges();
        item_->updateStatus(key_, PlayerItem::Status::readyToPlay);
        if (!item_) {
            return;
        }
        if (pendingSeek_) {
            sendPendingSeek();
        } else {
            if (playRate_ != 1.0f) {
                sendSeek(currentPosition(), true, std::nullopt);
            }
            if (auto player = player_.lock()) {
                player->timeDidJump(key_);
            }
        }
    }

    void handle(GstMessage* message) {
        if (!item_ && GST_MESSAGE_TYPE(message) != GST_MESSAGE_STATE_CHANGED) {
            return;
        }
        switch (GST_MESSAGE_TYPE(message)) {
            case GST_MESSAGE_ERROR: {
                if (windows_ && windows_->isWindowElement(GST_MESSAGE_SRC(message))) {
                    // A window that cannot be drawn into stays black; playback goes on.
                    return;
                }
                GError* raw = nullptr;
                gchar* debug = nullptr;
                gst_message_parse_error(message, &raw, &debug);
                GErrorPtr error(raw);
                GCharPtr debugText(debug);
                Error::UserInfo info;
                if (debugText) {
                    info[debugInfoKey] = debugText.get();
                }
                const bool missing = error && (g_error_matches(error.get(), GST_CORE_ERROR,
                                                               GST_CORE_ERROR_MISSING_PLUGIN) ||
                                               g_error_matches(error.get(), GST_STREAM_ERROR,
                                                               GST_STREAM_ERROR_CODEC_NOT_FOUND));
                const std::string text = error ? error->message : "The pipeline failed.";
                if (missing) {
                    const Error failure =
                        makeMediaError(MediaError::missingElement, text, std::nullopt, info);
                    if (auto player = player_.lock()) {
                        player->updateStatus(key_, Player::Status::failed, failure);
                    }
                    failItem(failure);
                    return;
                }
                Error failure =
                    makeMediaError(MediaError::playbackFailed, text,
                                   resources_ ? resources_->lastFailure() : std::nullopt, info);
                if (!selectionsLoaded_) {
                    // The asset reads the same master: when it cannot, its error is the cause.
                    pipelineFailure_ = std::move(failure);
                    return;
                }
                failItem(failure);
                return;
            }
            case GST_MESSAGE_EOS:
                ended_ = true;
                rate_ = 0;
                if (auto player = player_.lock()) {
                    player->updateRate(key_, 0);
                }
                applyTargetState();
                item_->post(key_, PlayerItem::didPlayToEndTimeNotification);
                reportTimeControl();
                return;
            case GST_MESSAGE_STATE_CHANGED: {
                if (GST_MESSAGE_SRC(message) != GST_OBJECT(pipeline_.get())) {
                    return;
                }
                // The message may be older than a change made since: read the state itself.
                GstState state = GST_STATE_NULL;
                GstState pending = GST_STATE_VOID_PENDING;
                gst_element_get_state(pipeline_.get(), &state, &pending, 0);
                currentState_ = state;
                pendingState_ = pending;
                reportTimeControl();
                return;
            }
            case GST_MESSAGE_ASYNC_DONE: {
                if (!prerolled_ && !heldSeek_) {
                    if (inFlightSeqnum_ == GST_SEQNUM_INVALID ||
                        gst_util_seqnum_compare(gst_message_get_seqnum(message), inFlightSeqnum_) >
                            0) {
                        inFlightSeqnum_ = GST_SEQNUM_INVALID;
                        prerolled();
                    }
                } else if (inFlightSeqnum_ != GST_SEQNUM_INVALID &&
                           gst_util_seqnum_compare(gst_message_get_seqnum(message),
                                                   inFlightSeqnum_) > 0) {
                    // Sequence numbers come from one counter: a message numbered after the
                    // seek event was made after it, so it is the seek's preroll.
                    inFlightSeqnum_ = GST_SEQNUM_INVALID;
                    finishSeek();
                    updateSeekableRanges();
                    sendPendingSeek();
                }
                applyTargetState();
                reportTimeControl();
                return;
            }
            case GST_MESSAGE_BUFFERING: {
                gint percent = 100;
                gst_message_parse_buffering(message, &percent);
                const bool buffering = percent < 100;
                if (buffering == buffering_) {
                    return;
                }
                buffering_ = buffering;
                // A stall: playback that was playing has to wait for data.
                if (buffering && prerolled_ && reported_ &&
                    reported_->first == Player::TimeControlStatus::playing) {
                    accessLog_.stalled();
                    item_->updateAccessLog(key_, accessLog_.events(), false);
                    item_->post(key_, PlayerItem::playbackStalledNotification);
                }
                applyTargetState();
                reportTimeControl();
                return;
            }
            case GST_MESSAGE_DURATION_CHANGED:
                if (prerolled_) {
                    updateDuration();
                }
                return;
            case GST_MESSAGE_CLOCK_LOST:
                if (requestedState_ == GST_STATE_PLAYING) {
                    gst_element_set_state(pipeline_.get(), GST_STATE_PAUSED);
                    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
                }
                return;
            case GST_MESSAGE_LATENCY:
                gst_bin_recalculate_latency(GST_BIN(pipeline_.get()));
                return;
            default:
                return;
        }
    }

    static gboolean onBusMessage(GstBus*, GstMessage* message, gpointer data) {
        auto* self = static_cast<Playback*>(data);
        auto keep = self->shared_from_this();
        self->handle(message);
        return G_SOURCE_CONTINUE;
    }

    // On streaming threads: a new stream collection is kept and answered from the main thread.
    // Sending select-streams from the thread that posted the collection would wait on the
    // demuxer's lock, which that thread holds.
    static GstBusSyncReply onSyncMessage(GstBus*, GstMessage* message, gpointer data) {
        if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_STREAM_COLLECTION) {
            return GST_BUS_PASS;
        }
        auto* self = static_cast<Playback*>(data);
        GstStreamCollection* collection = nullptr;
        gst_message_parse_stream_collection(message, &collection);
        GstRef<GstStreamCollection> owned(collection);
        if (!owned) {
            return GST_BUS_PASS;
        }
        {
            std::lock_guard lock(self->mutex_);
            self->collection_.reset(GST_STREAM_COLLECTION(gst_object_ref(owned.get())));
            self->collectionSource_.reset(
                GST_IS_ELEMENT(GST_MESSAGE_SRC(message))
                    ? GST_ELEMENT(gst_object_ref(GST_MESSAGE_SRC(message)))
                    : nullptr);
        }
        DispatchQueue::main()->async([weakSelf = self->weak_from_this()] {
            if (auto strong = weakSelf.lock()) {
                strong->mediaSelectionChanged();
            }
        });
        return GST_BUS_PASS;
    }

    static void onElementSetup(GstElement*, GstElement* element, gpointer data) {
        auto* self = static_cast<Playback*>(data);
        GstElementFactory* factory = gst_element_get_factory(element);
        const std::string name = factory ? GST_OBJECT_NAME(factory) : "";
        if (name == "subtitleoverlay") {
            g_signal_connect(element, "deep-element-added", G_CALLBACK(onOverlayChild), data);
        }
        if (name == "hlsdemux2") {
            // hlsdemux2 starts a newly selected rendition where the others have downloaded to:
            // keeping that close to the playing position lets an audio switch be heard soon.
            g_object_set(element, "high-watermark-time", demuxBufferingTime, nullptr);
        }
        if (name != "subtitleoverlay" && name != "textoverlay") {
            return;
        }
        self->styleNewOverlay(element);
    }

    static void onOverlayChild(GstBin*, GstBin*, GstElement* element, gpointer data) {
        onElementSetup(nullptr, element, data);
    }

    static GstPadProbeReturn onVideoBuffer(GstPad*, GstPadProbeInfo*, gpointer data) {
        auto* self = static_cast<Playback*>(data);
        bool first = false;
        std::uint64_t generation = 0;
        {
            std::lock_guard lock(self->mutex_);
            first = !std::exchange(self->firstFrameSeen_, true);
            generation = self->itemGeneration_;
        }
        if (first) {
            const double uptime = ProcessInfo::systemUptime();
            DispatchQueue::main()->async([weakSelf = self->weak_from_this(), uptime, generation] {
                auto strong = weakSelf.lock();
                if (strong && strong->item_ && strong->currentGeneration() == generation) {
                    strong->item_->post(strong->key_, PlayerItem::firstVideoFrameNotification,
                                        {{PlayerItem::firstVideoFrameUptimeKey, uptime}});
                }
            });
        }
        return GST_PAD_PROBE_OK;
    }

    const std::weak_ptr<Player> player_;
    const MediaEngineKey key_;
    GstRef<GstElement> pipeline_;
    GstRef<GstPad> videoPad_;
    gulong probe_ = 0;
    guint busWatch_ = 0;
    std::optional<Error> pipelineError_;
    bool announcedReady_ = false;  // the player is ready once its first pipeline is

    std::uint64_t currentGeneration() {
        std::lock_guard lock(mutex_);
        return itemGeneration_;
    }

    std::shared_ptr<PlayerItem> item_;
    std::shared_ptr<ItemObserver> itemObserver_;  // of the current item's resource session
    std::shared_ptr<ResourceSession> resources_;
    std::shared_ptr<GstVideoOutputs> windows_;      // none with a sink from the environment
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
    std::optional<std::uint64_t> seekId_;
    std::optional<PendingSeek> pendingSeek_;
    guint32 inFlightSeqnum_ = GST_SEQNUM_INVALID;  // the flushing seek not yet prerolled
    struct HeldSeek {
        MediaTime time;
        bool exact = true;
        std::optional<std::uint64_t> id;
        double since = 0;
    };
    std::optional<HeldSeek> heldSeek_;  // waiting for segment bodies to be still
    std::uint64_t heldSeekGeneration_ = 0;
    MediaTime seekTarget_ = MediaTime::zero();
    mutable MediaTime lastPosition_ = MediaTime::zero();
    std::optional<std::pair<Player::TimeControlStatus, std::optional<Player::WaitingReason>>>
        reported_ = std::make_pair(Player::TimeControlStatus::paused,
                                   std::optional<Player::WaitingReason>());
    ProgramDateTimeline timeline_;
    bool startRead_ = false;                // the first media playlist was read for its start
    std::optional<PendingSeek> startSeek_;  // to its start point, sent at the first preroll
    AccessLogRecorder accessLog_;
    bool selectionsLoaded_ = false;         // the asset has read its master
    std::optional<Error> pipelineFailure_;  // reported once it has, unless the asset failed

    // Shared with GStreamer's threads.
    std::mutex mutex_;
    WantedStreams wanted_;
    GstRef<GstStreamCollection> collection_;
    GstRef<GstElement> collectionSource_;   // the element that posted it
    std::vector<std::string> selected_;     // the stream ids last sent, sorted
    GstRef<GstStreamCollection> answered_;  // the collection they were sent for
    bool subtitlesShown_ = false;
    std::vector<TextStyleRule> style_;
    std::uint64_t styleVersion_ = 0;  // counts changes of subtitlesShown_ and style_
    std::vector<GstRef<GstElement>> overlays_;
    bool firstFrameSeen_ = false;
    std::uint64_t itemGeneration_ = 0;  // counts the items set, for news of streaming threads
};

GstPlayerEngine::GstPlayerEngine(const std::shared_ptr<Player>& player, const MediaEngineKey& key)
    : playback_(std::make_shared<Playback>(player, key)) {}

GstPlayerEngine::~GstPlayerEngine() {
    playback_->shutdown();
}

void GstPlayerEngine::setItem(const std::shared_ptr<PlayerItem>& item) {
    playback_->setItem(item);
}

void GstPlayerEngine::setRate(float rate) {
    playback_->setRate(rate);
}

void GstPlayerEngine::setMuted(bool muted) {
    playback_->setMuted(muted);
}

void GstPlayerEngine::setVolume(float volume) {
    playback_->setVolume(volume);
}

void GstPlayerEngine::seek(std::uint64_t id, MediaTime time, MediaTime toleranceBefore,
                           MediaTime toleranceAfter) {
    playback_->seek(id, time, toleranceBefore, toleranceAfter);
}

MediaTime GstPlayerEngine::currentTime() const {
    return playback_->currentTime();
}

std::optional<Date> GstPlayerEngine::currentDate() const {
    return playback_->currentDate();
}

void GstPlayerEngine::mediaSelectionChanged() {
    playback_->mediaSelectionChanged();
}

void GstPlayerEngine::textStyleRulesChanged() {
    playback_->textStyleRulesChanged();
}

void GstPlayerEngine::setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
    playback_->setVideoOutput(id, output);
}

void GstPlayerEngine::redrawVideoOutput(std::uint64_t id) {
    playback_->redrawVideoOutput(id);
}

}  // namespace zarvo
