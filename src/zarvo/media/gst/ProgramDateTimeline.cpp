#include "zarvo/media/gst/ProgramDateTimeline.h"

#include <algorithm>
#include <cmath>

namespace zarvo {

namespace {

// Segments kept behind the newest, so that a live session does not grow without end.
constexpr std::size_t keptSegments = 4096;

}  // namespace

void ProgramDateTimeline::add(const std::vector<HlsPlaylistRewriter::Segment>& segments) {
    if (segments.empty()) {
        return;
    }
    if (segments_.empty()) {
        double start = 0;
        for (const auto& segment : segments) {
            segments_[segment.sequence] = Placed{start, segment.duration, segment.programDateTime};
            start += segment.duration;
        }
        return;
    }
    // Place new segments after the known ones they follow, or before those they precede.
    for (const auto& segment : segments) {
        auto found = segments_.find(segment.sequence);
        if (found != segments_.end()) {
            if (!found->second.date) {
                found->second.date = segment.programDateTime;
            }
            continue;
        }
        auto after = segments_.lower_bound(segment.sequence);
        Placed placed{0, segment.duration, segment.programDateTime};
        if (after != segments_.begin()) {
            auto before = std::prev(after);
            const auto gap = static_cast<double>(segment.sequence - before->first - 1);
            placed.start = before->second.start + before->second.duration + gap * segment.duration;
        } else {
            const auto gap = static_cast<double>(after->first - segment.sequence);
            placed.start = after->second.start - gap * segment.duration;
        }
        segments_.emplace(segment.sequence, placed);
    }
    while (segments_.size() > keptSegments) {
        segments_.erase(segments_.begin());
    }
}

std::optional<Date> ProgramDateTimeline::dateAt(double position) const {
    if (!std::isfinite(position)) {
        return std::nullopt;
    }
    // The last segment starting at or before the position, else the first one.
    auto holder = segments_.end();
    for (auto it = segments_.begin(); it != segments_.end(); ++it) {
        if (it->second.start <= position + 1e-9) {
            holder = it;
        } else {
            break;
        }
    }
    if (holder == segments_.end()) {
        holder = segments_.begin();
    }
    if (holder == segments_.end()) {
        return std::nullopt;
    }
    if (holder->second.date) {
        return holder->second.date->addingTimeInterval(position - holder->second.start);
    }
    // The nearest dated segment carries the date over.
    const Placed* nearest = nullptr;
    double distance = 0;
    for (const auto& [sequence, placed] : segments_) {
        if (placed.date && (!nearest || std::fabs(placed.start - position) < distance)) {
            nearest = &placed;
            distance = std::fabs(placed.start - position);
        }
    }
    if (!nearest) {
        return std::nullopt;
    }
    return nearest->date->addingTimeInterval(position - nearest->start);
}

std::vector<DateRangeMetadataGroup> ProgramDateTimeline::metadataGroups(
    const std::vector<HlsPlaylistRewriter::DateRange>& ranges) {
    static constexpr const char* described[] = {
        "ID", "CLASS", "START-DATE", "END-DATE", "DURATION", "PLANNED-DURATION", "END-ON-NEXT"};
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
            if (std::find(std::begin(described), std::end(described), name) ==
                std::end(described)) {
                group.items.push_back(MetadataItem{"lsdr/" + name, name, value});
            }
        }
        groups.push_back(std::move(group));
    }
    return groups;
}

}  // namespace zarvo
