#include "zarvo/media/loopback/HlsPlaylistRewriter.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <unordered_map>

#include "zarvo/media/loopback/HlsAttributeList.h"

namespace zarvo {
namespace {

using Rewriter = HlsPlaylistRewriter;
using Kind = HlsPlaylistRewriter::ResourceKind;
using ByteRange = HlsPlaylistRewriter::ByteRange;

using AttributeList = HlsAttributeList;
using Attribute = HlsAttributeList::Attribute;
using Edit = HlsAttributeList::Edit;
constexpr auto trim = &HlsAttributeList::trim;
constexpr auto readInteger = &HlsAttributeList::readInteger;
constexpr auto readDecimal = &HlsAttributeList::readDecimal;
constexpr auto readDate = &HlsAttributeList::readDate;
constexpr auto removal = &HlsAttributeList::removal;
constexpr auto edited = &HlsAttributeList::edited;
constexpr std::size_t npos = std::string_view::npos;
constexpr std::int64_t kMaxInteger = std::numeric_limits<std::int64_t>::max();

// "length[@offset]", as EXT-X-BYTERANGE and the BYTERANGE attributes write a range.
struct WrittenRange {
    std::int64_t length = 0;
    std::optional<std::int64_t> offset;
};

std::optional<WrittenRange> readRange(std::string_view text) {
    const std::size_t at = text.find('@');
    auto length = readInteger(text.substr(0, at));
    if (!length) {
        return std::nullopt;
    }
    if (at == npos) {
        return WrittenRange{*length, std::nullopt};
    }
    auto offset = readInteger(text.substr(at + 1));
    if (!offset) {
        return std::nullopt;
    }
    return WrittenRange{*length, *offset};
}

std::string rangeText(const ByteRange& range) {
    return std::to_string(range.length) + "@" + std::to_string(range.offset);
}

// Where the next range of each URI starts when it is written without an offset.
class RangeTracker {
public:
    // The range with its offset; nothing when it would end beyond 2^63 - 1.
    std::optional<ByteRange> place(const std::string& uri, const WrittenRange& written) {
        std::int64_t offset = 0;
        if (written.offset) {
            offset = *written.offset;
        } else if (auto end = ends_.find(uri); end != ends_.end()) {
            offset = end->second;
        }
        if (offset > kMaxInteger - written.length) {
            return std::nullopt;
        }
        ends_[uri] = offset + written.length;
        return ByteRange{offset, written.length};
    }

private:
    std::unordered_map<std::string, std::int64_t> ends_;
};

// The mapper's text with the bytes that would end a quoted string or a line percent-encoded.
std::string sanitized(std::string text) {
    if (text.find_first_of("\"\r\n") == npos) {
        return text;
    }
    std::string out;
    for (char c : text) {
        switch (c) {
            case '"':
                out += "%22";
                break;
            case '\r':
                out += "%0D";
                break;
            case '\n':
                out += "%0A";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// One pass over the lines of a playlist.
class Pass {
public:
    Pass(const Url& base, const Rewriter::Mapper& mapper, Rewriter::Options options)
        : base_(base), mapper_(mapper), options_(options) {}

    void read(std::string_view line) {
        const std::string_view content = trim(line);
        if (content.empty() || (content.front() == '#' && !line.starts_with("#EXT"))) {
            emit(line);  // blank line or comment
        } else if (content.front() != '#') {
            uriLine(line, content);
        } else {
            tag(line);
        }
    }

    Rewriter::Result finish() && {
        if (heldRange_) {
            release(heldRange_->line);
        }
        result_.isMasterPlaylist = sawMasterTag_ && !sawSegmentInfo_;
        result_.text = std::move(text_);
        return std::move(result_);
    }

private:
    enum class Pending { none, segment, variant };

    // An EXT-X-BYTERANGE line waits for its URI line, which decides whether it is written.
    struct HeldRange {
        std::string line;
        WrittenRange range;
    };

    void emit(std::string_view line) {
        // A CR that an edit brings to the end would be read as part of the line ending.
        while (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        std::string& to = heldRange_ ? heldText_ : text_;
        to.append(line);
        to += '\n';
    }

    // Writes the held range line (as `rangeLine`, or not at all), then the lines after it.
    void release(std::optional<std::string_view> rangeLine) {
        if (rangeLine) {
            text_.append(*rangeLine);
            text_ += '\n';
        }
        text_ += heldText_;
        heldText_.clear();
        heldRange_.reset();
    }

    std::optional<std::string> map(Kind kind, const Url& url, std::optional<ByteRange> range) {
        if (!mapper_) {
            return std::nullopt;
        }
        auto replacement = mapper_(Rewriter::Reference{kind, url, range});
        if (replacement) {
            return sanitized(std::move(*replacement));
        }
        return std::nullopt;
    }

    // Maps the URI attribute (if it is a URL reference) into `edits`; gives the resolved URL
    // and whether the mapper replaced it.
    std::pair<std::optional<Url>, bool> mapUri(const Attribute* uri, Kind kind,
                                               std::optional<ByteRange> range,
                                               std::vector<Edit>& edits) {
        auto url = uri ? Url::parse(uri->value, base_) : std::nullopt;
        if (!url) {
            return {std::nullopt, false};
        }
        auto replacement = map(kind, *url, range);
        if (replacement) {
            edits.push_back({uri->valueBegin, uri->valueEnd, '"' + *replacement + '"'});
        }
        return {std::move(url), replacement.has_value()};
    }

    void uriLine(std::string_view line, std::string_view uri) {
        const Pending pending = pending_;
        pending_ = Pending::none;
        if (pending == Pending::segment) {
            segmentLine(line, uri);
            return;
        }
        if (heldRange_) {
            release(heldRange_->line);  // a range applies to segments only
        }
        auto url = Url::parse(uri, base_);
        std::optional<std::string> replacement;
        if (url) {
            replacement = map(pending == Pending::variant ? Kind::variantPlaylist : Kind::other,
                              *url, std::nullopt);
        }
        if (pending == Pending::variant && url) {
            pendingVariant_.url = *url;
            result_.variants.push_back(pendingVariant_);
        }
        emit(replacement ? *replacement : line);
    }

    void segmentLine(std::string_view line, std::string_view uri) {
        auto url = Url::parse(uri, base_);
        std::optional<ByteRange> range;
        if (heldRange_) {
            range =
                ranges_.place(url ? url->absoluteString() : std::string(uri), heldRange_->range);
        }
        std::optional<std::string> replacement;
        if (url) {
            replacement = map(Kind::segment, *url, range);
        }
        if (heldRange_) {
            if (!range || (replacement && !options_.keepByteRanges)) {
                release(std::nullopt);
            } else if (heldRange_->range.offset) {
                release(heldRange_->line);
            } else {
                release("#EXT-X-BYTERANGE:" + rangeText(*range));
            }
        }
        emit(replacement ? *replacement : line);

        Rewriter::Segment segment;
        segment.sequence = nextSequence_;
        // Wraps instead of overflowing after a sequence number near 2^63.
        nextSequence_ = static_cast<std::int64_t>(static_cast<std::uint64_t>(nextSequence_) + 1);
        segment.duration = pendingDuration_;
        segment.discontinuity = pendingDiscontinuity_;
        if (pendingDate_) {
            segment.programDateTime = pendingDate_;
        } else if (!pendingDiscontinuity_ && previousDate_) {
            segment.programDateTime = previousDate_->addingTimeInterval(previousDuration_);
        }
        segment.url = std::move(url);
        segment.byteRange = range;
        segment.keyIndex = keyInForce_;
        previousDate_ = segment.programDateTime;
        previousDuration_ = segment.duration;
        result_.segments.push_back(std::move(segment));
        pendingDuration_ = 0;
        pendingDate_.reset();
        pendingDiscontinuity_ = false;
    }

    void tag(std::string_view line) {
        const std::size_t colon = line.find(':');
        const std::string_view name = trim(line.substr(0, colon));
        const std::string_view value = colon == npos ? "" : line.substr(colon + 1);
        const std::size_t listStart = colon == npos ? line.size() : colon + 1;
        if (name == "#EXTINF") {
            pending_ = Pending::segment;
            pendingDuration_ = readDecimal(value.substr(0, value.find(','))).value_or(0);
            sawSegmentInfo_ = true;
        } else if (name == "#EXT-X-BYTERANGE") {
            if (auto range = readRange(value)) {
                // A range replaced before its URI line has no effect: it is left out.
                heldRange_ = HeldRange{std::string(line), *range};
                return;
            }
        } else if (name == "#EXT-X-PROGRAM-DATE-TIME") {
            if (auto date = readDate(value)) {
                pendingDate_ = date;
            }
        } else if (name == "#EXT-X-DISCONTINUITY") {
            pendingDiscontinuity_ = true;
        } else if (name == "#EXT-X-TARGETDURATION") {
            if (!result_.targetDuration) {
                result_.targetDuration = readInteger(value);
            }
        } else if (name == "#EXT-X-MEDIA-SEQUENCE") {
            if (!result_.mediaSequence && result_.segments.empty()) {
                result_.mediaSequence = readInteger(value);
                nextSequence_ = result_.mediaSequence.value_or(0);
            }
        } else if (name == "#EXT-X-DISCONTINUITY-SEQUENCE") {
            if (!result_.discontinuitySequence) {
                result_.discontinuitySequence = readInteger(value);
            }
        } else if (name == "#EXT-X-PLAYLIST-TYPE") {
            if (!result_.playlistType && !trim(value).empty()) {
                result_.playlistType = std::string(trim(value));
            }
        } else if (name == "#EXT-X-ENDLIST") {
            result_.hasEndList = true;
        } else if (name == "#EXT-X-START") {
            const AttributeList list(line, listStart);
            const Attribute* offset = list.find("TIME-OFFSET");
            if (!result_.start && offset) {
                // A signed-decimal-floating-point.
                const bool negative = !offset->value.empty() && offset->value.front() == '-';
                if (auto seconds = readDecimal(offset->value.substr(negative ? 1 : 0))) {
                    result_.start = Rewriter::Result::Start{negative ? -*seconds : *seconds,
                                                            list.yes("PRECISE")};
                }
            }
        } else if (name == "#EXT-X-STREAM-INF") {
            pending_ = Pending::variant;
            pendingVariant_ = variant(AttributeList(line, listStart), false);
            sawMasterTag_ = true;
        } else if (name == "#EXT-X-DATERANGE") {
            dateRange(AttributeList(line, listStart));
        } else if (colon != npos && name != "#EXTM3U" && name != "#EXT-X-VERSION" &&
                   name != "#EXT-X-BITRATE" && name != "#EXT-X-ALLOW-CACHE") {
            emit(attributeTag(line, name, AttributeList(line, listStart)));
            return;
        }
        emit(line);
    }

    // A tag whose attribute list may hold a URI; gives the line to write.
    std::string attributeTag(std::string_view line, std::string_view name,
                             const AttributeList& list) {
        std::vector<Edit> edits;
        const Attribute* uri = list.find("URI");
        if (name == "#EXT-X-MEDIA") {
            sawMasterTag_ = true;
            auto [url, replaced] = mapUri(uri, Kind::renditionPlaylist, std::nullopt, edits);
            result_.renditions.push_back({.type = list.text("TYPE").value_or(""),
                                          .groupId = list.text("GROUP-ID").value_or(""),
                                          .name = list.text("NAME").value_or(""),
                                          .language = list.text("LANGUAGE"),
                                          .assocLanguage = list.text("ASSOC-LANGUAGE"),
                                          .instreamId = list.text("INSTREAM-ID"),
                                          .characteristics = list.text("CHARACTERISTICS"),
                                          .channels = list.text("CHANNELS"),
                                          .isDefault = list.yes("DEFAULT"),
                                          .autoselect = list.yes("AUTOSELECT"),
                                          .forced = list.yes("FORCED"),
                                          .url = std::move(url)});
        } else if (name == "#EXT-X-I-FRAME-STREAM-INF") {
            sawMasterTag_ = true;
            auto [url, replaced] = mapUri(uri, Kind::variantPlaylist, std::nullopt, edits);
            if (url) {
                result_.variants.push_back(variant(list, true));
                result_.variants.back().url = std::move(*url);
            }
        } else if (name == "#EXT-X-KEY" || name == "#EXT-X-SESSION-KEY") {
            auto [url, replaced] = mapUri(uri, Kind::key, std::nullopt, edits);
            result_.keys.push_back({.method = list.text("METHOD").value_or(""),
                                    .url = std::move(url),
                                    .iv = list.text("IV"),
                                    .keyFormat = list.text("KEYFORMAT")});
            if (name == "#EXT-X-KEY") {
                keyInForce_.reset();
                if (result_.keys.back().method != "NONE") {
                    keyInForce_ = result_.keys.size() - 1;
                }
            }
        } else if (name == "#EXT-X-MAP") {
            rangedUri(line, list, Kind::initializationSection, ranges_, edits);
        } else if (name == "#EXT-X-PART") {
            rangedUri(line, list, Kind::segment, partRanges_, edits);
        } else if (name == "#EXT-X-PRELOAD-HINT") {
            const bool isMap = list.text("TYPE") == "MAP";
            mapUri(uri, isMap ? Kind::initializationSection : Kind::segment, std::nullopt, edits);
        } else {
            mapUri(uri, Kind::other, std::nullopt, edits);
        }
        return edited(line, edits);
    }

    // The URI and BYTERANGE attributes of EXT-X-MAP and EXT-X-PART.
    void rangedUri(std::string_view line, const AttributeList& list, Kind kind,
                   RangeTracker& tracker, std::vector<Edit>& edits) {
        const Attribute* uri = list.find("URI");
        const Attribute* rangeAttribute = list.find("BYTERANGE");
        std::optional<WrittenRange> written;
        if (uri && rangeAttribute) {
            written = readRange(rangeAttribute->value);
        }
        std::optional<ByteRange> range;
        if (written) {
            auto url = Url::parse(uri->value, base_);
            range = tracker.place(url ? url->absoluteString() : std::string(uri->value), *written);
        }
        auto [url, replaced] = mapUri(uri, kind, range, edits);
        if (!written) {
            return;
        }
        if (!range || (replaced && !options_.keepByteRanges)) {
            // Every one, so that no repeated attribute takes the place of the range left out.
            for (const Attribute& attribute : list.all()) {
                if (attribute.name == "BYTERANGE") {
                    edits.push_back(removal(attribute, line.size()));
                }
            }
        } else if (!written->offset) {
            edits.push_back({rangeAttribute->valueBegin, rangeAttribute->valueEnd,
                             '"' + rangeText(*range) + '"'});
        }
    }

    Rewriter::Variant variant(const AttributeList& list, bool isIFrameOnly) const {
        std::optional<std::string> closedCaptions;
        if (const Attribute* attribute = list.find("CLOSED-CAPTIONS");
            attribute && attribute->value != "NONE") {
            closedCaptions = std::string(attribute->value);
        }
        return {.url = base_,
                .bandwidth = list.integer("BANDWIDTH").value_or(0),
                .averageBandwidth = list.integer("AVERAGE-BANDWIDTH"),
                .resolution = list.text("RESOLUTION"),
                .codecs = list.text("CODECS"),
                .audioGroup = list.text("AUDIO"),
                .subtitlesGroup = list.text("SUBTITLES"),
                .closedCaptionsGroup = std::move(closedCaptions),
                .isIFrameOnly = isIFrameOnly,
                .frameRate = list.decimal("FRAME-RATE")};
    }

    void dateRange(const AttributeList& list) {
        Rewriter::DateRange range{.id = list.text("ID").value_or(""),
                                  .classAttribute = list.text("CLASS"),
                                  .startDate = list.date("START-DATE"),
                                  .endDate = list.date("END-DATE"),
                                  .duration = list.decimal("DURATION"),
                                  .plannedDuration = list.decimal("PLANNED-DURATION"),
                                  .endOnNext = list.yes("END-ON-NEXT")};
        for (const Attribute& attribute : list.all()) {
            range.attributes.emplace_back(attribute.name, attribute.value);
        }
        result_.dateRanges.push_back(std::move(range));
    }

    const Url& base_;
    const Rewriter::Mapper& mapper_;
    const Rewriter::Options options_;
    Rewriter::Result result_;
    std::string text_;

    std::optional<HeldRange> heldRange_;
    std::string heldText_;  // lines written after the held range line
    RangeTracker ranges_;   // segments and initialization sections
    RangeTracker partRanges_;

    Pending pending_ = Pending::none;
    Rewriter::Variant pendingVariant_{.url = base_};
    double pendingDuration_ = 0;
    std::optional<Date> pendingDate_;
    bool pendingDiscontinuity_ = false;

    std::int64_t nextSequence_ = 0;
    std::optional<Date> previousDate_;
    double previousDuration_ = 0;
    std::optional<std::size_t> keyInForce_;
    bool sawMasterTag_ = false;
    bool sawSegmentInfo_ = false;
};

}  // namespace

bool HlsPlaylistRewriter::looksLikePlaylist(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    return text.starts_with("#EXTM3U");
}

HlsPlaylistRewriter::Result HlsPlaylistRewriter::rewrite(std::string_view text,
                                                         const Url& playlistUrl,
                                                         const Mapper& mapper, Options options) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    // Every mark, so that the text written does not start with one.
    while (text.starts_with(byteOrderMark)) {
        text.remove_prefix(byteOrderMark.size());
    }
    Pass pass(playlistUrl, mapper, options);
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline == npos ? text.size() : newline + 1);
        while (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        pass.read(line);
    }
    return std::move(pass).finish();
}

}  // namespace zarvo
