#include "zarvo/media/gst/AccessLogRecorder.h"

#include <limits>

#include "zarvo/platform/Scheduler.h"

namespace zarvo {

void AccessLogRecorder::masterServed(const HlsPlaylistRewriter::Result& master) {
    for (const auto& variant : master.variants) {
        bandwidths_[variant.url.absoluteString()] = static_cast<double>(variant.bandwidth);
    }
}

bool AccessLogRecorder::variantServed(const Url& url, const std::string& playbackType,
                                      double position) {
    const std::string uri = url.absoluteString();
    if (!events_.empty() && uri == currentUri_) {
        return false;
    }
    if (playing_ && !events_.empty()) {
        const double now = Scheduler::standard()->uptime();
        events_.back().durationWatched += now - playingSince_;
        playingSince_ = now;
    }
    PlayerItemAccessLogEvent event;
    event.uri = uri;
    event.serverAddress = url.host().value_or("");
    event.playbackStartDate = Scheduler::standard()->now();
    event.playbackStartOffset = position;
    event.playbackType = playbackType;
    auto bandwidth = bandwidths_.find(uri);
    event.indicatedBitrate = bandwidth == bandwidths_.end() ? 0 : bandwidth->second;
    event.observedBitrate = std::numeric_limits<double>::quiet_NaN();
    event.switchBitrate = events_.empty() ? 0 : events_.back().indicatedBitrate;
    events_.push_back(std::move(event));
    currentUri_ = uri;
    segmentsSinceAnnouncement_ = 0;
    return true;
}

bool AccessLogRecorder::transferred(const ResourceSession::Transfer& transfer) {
    if (events_.empty()) {
        return false;
    }
    auto& event = events_.back();
    ++event.numberOfMediaRequests;
    event.numberOfBytesTransferred += transfer.bytes;
    event.transferDuration += transfer.seconds;
    if (transfer.mediaDuration && transfer.complete) {
        event.segmentsDownloadedDuration += *transfer.mediaDuration;
    }
    if (event.transferDuration > 0) {
        event.observedBitrate =
            static_cast<double>(event.numberOfBytesTransferred) * 8.0 / event.transferDuration;
    }
    if (++segmentsSinceAnnouncement_ >= segmentsPerAnnouncement) {
        segmentsSinceAnnouncement_ = 0;
        return true;
    }
    return false;
}

void AccessLogRecorder::stalled() {
    if (!events_.empty()) {
        ++events_.back().numberOfStalls;
    }
}

void AccessLogRecorder::setPlaying(bool playing) {
    if (playing == playing_) {
        return;
    }
    const double now = Scheduler::standard()->uptime();
    if (playing_ && !events_.empty()) {
        events_.back().durationWatched += now - playingSince_;
    }
    playing_ = playing;
    playingSince_ = now;
}

std::vector<PlayerItemAccessLogEvent> AccessLogRecorder::events() const {
    auto events = events_;
    if (playing_ && !events.empty()) {
        events.back().durationWatched += Scheduler::standard()->uptime() - playingSince_;
    }
    return events;
}

std::string AccessLogRecorder::playbackType(const Url& assetUrl,
                                            const HlsPlaylistRewriter::Result& playlist) {
    if (assetUrl.isFileUrl()) {
        return "FILE";
    }
    return playlist.hasEndList || playlist.playlistType == "VOD" ? "VOD" : "LIVE";
}

}  // namespace zarvo
