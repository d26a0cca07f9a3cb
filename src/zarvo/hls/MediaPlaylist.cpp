#include "zarvo/hls/MediaPlaylist.h"

#include "zarvo/platform/FatalError.h"

namespace zarvo {

void MediaPlaylist::addSegment(std::shared_ptr<MediaSegment> segment) {
    segments.push_back(std::move(segment));
}

std::shared_ptr<MediaSegment> MediaPlaylist::getSegment(std::int64_t index) const {
    if (index < 0 || index >= getSegmentCount()) {
        return nullptr;
    }
    return segments[static_cast<std::size_t>(index)];
}

float MediaPlaylist::duration() const {
    float total = 0;
    for (const auto& segment : segments) {
        if (!segment->duration) {
            fatalError("MediaPlaylist.duration(): segment " + std::to_string(segment->sequence) +
                       " has no duration");
        }
        total += *segment->duration;
    }
    return total;
}

}  // namespace zarvo
