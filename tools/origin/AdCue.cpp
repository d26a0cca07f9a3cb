#include "origin/AdCue.h"

#include <cmath>
#include <cstdio>

#include "zarvo/platform/Base64.h"

namespace zarvo::origin {

Json AdCue::event() const {
    const long long offsetMs =
        static_cast<long long>(std::llround(start.timeIntervalSinceReferenceDate() * 1000.0));
    char durationText[32];
    std::snprintf(durationText, sizeof durationText, "%g", duration);
    Json event = Json::object();
    event["advert-id"] = "zm-advert-" + std::to_string(index % 3 + 1);
    event["advert-sequence"] = "1";
    event["break-id"] = "zm-break-" + std::to_string(index);
    event["duration"] = durationText;
    event["event"] = "break-start";
    event["id"] = "zm-cue-" + std::to_string(index);
    event["offset"] = offsetMs;
    event["type"] = "midroll";
    event["url"] = "http://127.0.0.1/ads/zm-advert-" + std::to_string(index % 3 + 1);
    return event;
}

std::string AdCue::encodedValue() const {
    Json value = Json::object();
    value["vast"] = Json::object({{"event", event()}});
    return Base64::encodeUrlSafe(value.dump());
}

std::string AdCue::dateRangeTag() const {
    char durationText[32];
    std::snprintf(durationText, sizeof durationText, "%.3f", duration);
    return "#EXT-X-DATERANGE:ID=\"zm-cue-" + std::to_string(index) + "\",START-DATE=\"" +
           start.iso8601() + "\",DURATION=" + durationText + "," + attributeName + "=\"" +
           encodedValue() + "\"";
}

std::vector<AdCue> AdCue::overlapping(Date epoch, double interval, double duration, Date from,
                                      Date to) {
    std::vector<AdCue> cues;
    if (interval <= 0 || duration <= 0 || !(from < to)) {
        return cues;
    }
    // First break that can still be running at `from`.
    long long first =
        static_cast<long long>(std::floor((from.timeIntervalSince(epoch) - duration) / interval));
    first = std::max(first, 0LL);
    for (long long n = first;; ++n) {
        const Date start = epoch.addingTimeInterval(static_cast<double>(n) * interval);
        if (!(start < to)) {
            break;
        }
        if (start.addingTimeInterval(duration) > from) {
            cues.push_back(AdCue{n, start, duration});
        }
    }
    return cues;
}

}  // namespace zarvo::origin
