#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Rewrites every URI of an HLS playlist (RFC 8216) through a mapper, and reads what the
// playlist says on the way: variants, renditions, segments with their dates, keys and date
// ranges. The loopback resource server uses it to make the engine come back to it for every
// resource; the download service, to point local playlists at files on disk.
//
// Any bytes are accepted (a playlist comes from the network) and read in time linear in their
// size. Lines are split at LF; the CRs before it and UTF-8 byte-order marks at the start are
// dropped, and every line is written back as it was, ending in "\n", except for the URIs the
// mapper replaces and the byte ranges (see Options). A URI that is not a URL reference is
// neither given to the mapper nor changed. Rewriting the text written, keeping every URI,
// gives it back unchanged.
class ZARVO_EXPORT HlsPlaylistRewriter {
public:
    enum class ResourceKind {
        variantPlaylist,        // URI line after EXT-X-STREAM-INF; URI= of EXT-X-I-FRAME-STREAM-INF
        renditionPlaylist,      // URI= of EXT-X-MEDIA
        segment,                // URI line after EXTINF; URI= of EXT-X-PART and EXT-X-PRELOAD-HINT
        initializationSection,  // URI= of EXT-X-MAP and of EXT-X-PRELOAD-HINT with TYPE=MAP
        key,                    // URI= of EXT-X-KEY and EXT-X-SESSION-KEY
        other,  // URI= of any other tag (EXT-X-SESSION-DATA, EXT-X-RENDITION-REPORT, ...), and a
                // URI line that follows neither EXTINF nor EXT-X-STREAM-INF
    };

    struct ByteRange {
        std::int64_t offset = 0;
        std::int64_t length = 0;

        // The Range header's value that asks for these bytes.
        std::string header() const {
            return "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + length - 1);
        }
        // The bytes of an answer with `statusCode` that come before these: an origin that
        // ignores the Range header answers with the whole resource, under any status but 206.
        std::int64_t skippedIn(int statusCode) const { return statusCode == 206 ? 0 : offset; }

        bool operator==(const ByteRange&) const = default;
    };

    // One URI met in the playlist, resolved against the playlist's own URL.
    struct Reference {
        ResourceKind kind = ResourceKind::other;
        Url url;
        // EXT-X-BYTERANGE of a segment, BYTERANGE of EXT-X-MAP and EXT-X-PART, with the offset
        // made explicit: a range without "@offset" continues after the previous range of the
        // same URI (segments and maps together, parts apart), or starts at 0.
        std::optional<ByteRange> byteRange;
    };

    // The URL text to write instead of the reference; nothing keeps the URI as written. A '"',
    // CR or LF in the text is written percent-encoded.
    using Mapper = std::function<std::optional<std::string>(const Reference&)>;

    struct Options {
        // false: when the mapper replaces a URI that has a byte range, the range is left out
        // (its EXT-X-BYTERANGE line, the BYTERANGE attribute of EXT-X-MAP or EXT-X-PART): the
        // mapper has put the range into the URI, each range a resource of its own.
        // true: ranges are written back. Ranges written back always carry their offset.
        bool keepByteRanges = false;
    };

    struct Variant {
        Url url;
        std::int64_t bandwidth = 0;  // 0 when missing or not a number
        std::optional<std::int64_t> averageBandwidth;
        std::optional<std::string> resolution, codecs, audioGroup, subtitlesGroup;
        std::optional<std::string> closedCaptionsGroup;  // nothing for CLOSED-CAPTIONS=NONE
        bool isIFrameOnly = false;
        std::optional<double> frameRate;

        bool operator==(const Variant&) const = default;
    };

    struct Rendition {
        std::string type;  // "AUDIO", "VIDEO", "SUBTITLES", "CLOSED-CAPTIONS" as written
        std::string groupId, name;
        std::optional<std::string> language, assocLanguage, instreamId, characteristics, channels;
        bool isDefault = false, autoselect = false, forced = false;
        std::optional<Url> url;

        bool operator==(const Rendition&) const = default;
    };

    struct Key {
        std::string method;  // "" when missing
        std::optional<Url> url;
        std::optional<std::string> iv, keyFormat;

        bool operator==(const Key&) const = default;
    };

    struct Segment {
        std::int64_t sequence = 0;
        double duration = 0;  // 0 when EXTINF has no number
        std::optional<Date> programDateTime;
        std::optional<Url> url;  // nothing when the URI is not a URL reference
        std::optional<ByteRange> byteRange;
        bool discontinuity = false;  // EXT-X-DISCONTINUITY before this segment
        // Into `keys`: the last EXT-X-KEY before the segment; nothing without one or when its
        // METHOD is NONE.
        std::optional<std::size_t> keyIndex;

        bool operator==(const Segment&) const = default;
    };

    struct DateRange {
        std::string id;
        std::optional<std::string> classAttribute;
        std::optional<Date> startDate, endDate;
        std::optional<double> duration, plannedDuration;
        bool endOnNext = false;
        // Every attribute of the tag in written order, values without their quotes.
        std::vector<std::pair<std::string, std::string>> attributes;

        bool operator==(const DateRange&) const = default;
    };

    struct Result {
        std::string text;  // the rewritten playlist
        // EXT-X-STREAM-INF, EXT-X-I-FRAME-STREAM-INF or EXT-X-MEDIA, and no EXTINF.
        bool isMasterPlaylist = false;
        std::vector<Variant> variants;  // those whose URI is a URL reference
        std::vector<Rendition> renditions;
        // The first valid value of each; EXT-X-MEDIA-SEQUENCE only before the first segment.
        std::optional<std::int64_t> targetDuration, mediaSequence, discontinuitySequence;
        std::optional<std::string> playlistType;  // "VOD", "EVENT" as written
        bool hasEndList = false;
        // The first valid EXT-X-START: where playback begins, TIME-OFFSET seconds from the
        // start of the playlist (from its end when negative), exactly there when PRECISE.
        struct Start {
            double timeOffset = 0;
            bool precise = false;

            bool operator==(const Start&) const = default;
        };
        std::optional<Start> start;
        // Numbered from EXT-X-MEDIA-SEQUENCE (0 without it). A segment without a
        // PROGRAM-DATE-TIME of its own is dated after the previous one, unless a discontinuity
        // comes between them.
        std::vector<Segment> segments;
        std::vector<DateRange> dateRanges;
        std::vector<Key> keys;  // EXT-X-KEY and EXT-X-SESSION-KEY in written order

        bool operator==(const Result&) const = default;
    };

    // Whether `text` starts as a playlist does: "#EXTM3U", after a UTF-8 byte-order mark or not.
    static bool looksLikePlaylist(std::string_view text);

    // `playlistUrl` is the absolute URL the playlist was read from; references resolve
    // against it. The mapper is called once per URI, in written order.
    static Result rewrite(std::string_view text, const Url& playlistUrl, const Mapper& mapper,
                          Options options);
    static Result rewrite(std::string_view text, const Url& playlistUrl, const Mapper& mapper) {
        return rewrite(text, playlistUrl, mapper, Options{});
    }
};

}  // namespace zarvo
