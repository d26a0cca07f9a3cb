#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zarvo::origin {

// The segments of a generated VOD media playlist, in order: what the live and DVR playlists
// repeat. Only the tags our own generator writes are understood.
class SegmentList {
public:
    struct Segment {
        double duration = 0;
        std::string uri;
        std::optional<std::string> byteRange;  // "length@offset"
    };

    // Nothing when the text is not an M3U playlist or has no segments.
    static std::optional<SegmentList> parse(std::string_view text);

    const std::vector<Segment>& segments() const { return segments_; }
    int targetDuration() const { return targetDuration_; }
    int version() const { return version_; }
    // Tags that apply to every segment (EXT-X-KEY, EXT-X-MAP), in order.
    const std::vector<std::string>& sharedTags() const { return sharedTags_; }

private:
    std::vector<Segment> segments_;
    std::vector<std::string> sharedTags_;
    int targetDuration_ = 0;
    int version_ = 3;
};

}  // namespace zarvo::origin
