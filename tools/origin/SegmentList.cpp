#include "origin/SegmentList.h"

#include <cmath>
#include <cstdlib>

namespace zarvo::origin {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

std::optional<SegmentList> SegmentList::parse(std::string_view text) {
    SegmentList list;
    std::optional<Segment> pending;
    bool sawHeader = false;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            continue;
        }
        if (!sawHeader) {
            if (line != "#EXTM3U") {
                return std::nullopt;
            }
            sawHeader = true;
        } else if (startsWith(line, "#EXTINF:")) {
            pending = Segment{std::strtod(std::string(line.substr(8)).c_str(), nullptr), {}, {}};
        } else if (startsWith(line, "#EXT-X-BYTERANGE:")) {
            if (pending) {
                pending->byteRange = std::string(line.substr(17));
            }
        } else if (startsWith(line, "#EXT-X-TARGETDURATION:")) {
            list.targetDuration_ = std::atoi(std::string(line.substr(22)).c_str());
        } else if (startsWith(line, "#EXT-X-VERSION:")) {
            list.version_ = std::atoi(std::string(line.substr(15)).c_str());
        } else if (startsWith(line, "#EXT-X-KEY:") || startsWith(line, "#EXT-X-MAP:")) {
            list.sharedTags_.emplace_back(line);
        } else if (line.front() != '#' && pending) {
            pending->uri = std::string(line);
            list.segments_.push_back(std::move(*pending));
            pending.reset();
        }
    }
    if (list.segments_.empty()) {
        return std::nullopt;
    }
    for (const auto& segment : list.segments_) {
        list.targetDuration_ =
            std::max(list.targetDuration_, static_cast<int>(std::lround(segment.duration)));
    }
    return list;
}

}  // namespace zarvo::origin
