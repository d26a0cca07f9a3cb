#pragma once

#include <map>
#include <string>
#include <vector>

#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/media/model/PlayerItemAccessLogEvent.h"

namespace zarvo {

// Keeps an item's access log from what its resource session reports: an event per variant
// played (a new one at each switch), with the transfers, stalls and watching time of that
// stretch. Times come from the scheduler's clock.
class AccessLogRecorder {
public:
    // The master playlist's variants (for their BANDWIDTH).
    void masterServed(const HlsPlaylistRewriter::Result& master);
    // "FILE" for an asset on disk, else "VOD" for a playlist that ends (or says so), else "LIVE".
    static std::string playbackType(const Url& assetUrl,
                                    const HlsPlaylistRewriter::Result& playlist);
    // A variant media playlist was served; true when this starts a new event (a switch).
    bool variantServed(const Url& url, const std::string& playbackType, double position);
    // A media transfer ended; true when the log should be announced (each few segments).
    bool transferred(const ResourceSession::Transfer& transfer);
    void stalled();
    // Playing started or stopped: watching time runs while playing.
    void setPlaying(bool playing);

    std::vector<PlayerItemAccessLogEvent> events() const;
    bool empty() const { return events_.empty(); }

    // Segments between announcements of the same event.
    static constexpr int segmentsPerAnnouncement = 3;

private:
    std::map<std::string, double> bandwidths_;  // variant URL -> BANDWIDTH
    std::vector<PlayerItemAccessLogEvent> events_;
    std::string currentUri_;
    int segmentsSinceAnnouncement_ = 0;
    bool playing_ = false;
    double playingSince_ = 0;
};

}  // namespace zarvo
