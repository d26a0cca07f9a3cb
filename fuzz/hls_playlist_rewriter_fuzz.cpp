// The playlist rewriter: any text is rewritten, both ways of handling byte ranges. Every
// reference is absolute with a range that fits; segments are numbered consecutively from the
// media sequence with keys in force that exist. Rewriting the output again changes nothing
// and meets the same references, now with the replaced URLs; rewriting without replacing is
// stable, model included.
#include <limits>
#include <string>
#include <vector>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"

#include "FuzzSupport.h"

namespace {

using namespace zarvo;
using Rewriter = HlsPlaylistRewriter;

const Url& playlistUrl() {
    static const Url url = *Url::parse("https://origin.example/live/a/index.m3u8?token=t");
    return url;
}

std::optional<std::string> keep(const Rewriter::Reference&) {
    return std::nullopt;
}

void checkModel(const Rewriter::Result& result) {
    fuzz::check(result.text.empty() || result.text.back() == '\n');
    fuzz::check(result.text.find("\r\n") == std::string::npos);
    auto sequence = static_cast<std::uint64_t>(result.mediaSequence.value_or(0));
    for (const auto& segment : result.segments) {
        fuzz::check(segment.sequence == static_cast<std::int64_t>(sequence++));
        fuzz::check(segment.duration >= 0);
        if (segment.keyIndex) {
            fuzz::check(*segment.keyIndex < result.keys.size());
            fuzz::check(result.keys[*segment.keyIndex].method != "NONE");
        }
        fuzz::check(!segment.url || segment.url->isAbsolute());
    }
    fuzz::check(!result.isMasterPlaylist || result.segments.empty());
}

void checkRange(const std::optional<Rewriter::ByteRange>& range) {
    if (range) {
        fuzz::check(range->offset >= 0 && range->length >= 0);
        fuzz::check(range->offset <= std::numeric_limits<std::int64_t>::max() - range->length);
    }
}

void run(std::string_view text, Rewriter::Options options) {
    // Replaces two references in three with a URL holding a comma and an '='.
    std::vector<Rewriter::Reference> seen;
    std::vector<std::optional<std::string>> replacements;
    auto first = Rewriter::rewrite(
        text, playlistUrl(),
        [&](const Rewriter::Reference& reference) -> std::optional<std::string> {
            fuzz::check(reference.url.isAbsolute());
            checkRange(reference.byteRange);
            seen.push_back(reference);
            replacements.push_back(std::nullopt);
            if (seen.size() % 3 != 0) {
                replacements.back() = "http://127.0.0.1:1/r,x=" + std::to_string(seen.size());
            }
            return replacements.back();
        },
        options);
    checkModel(first);

    std::size_t index = 0;
    auto second = Rewriter::rewrite(
        first.text, playlistUrl(),
        [&](const Rewriter::Reference& reference) -> std::optional<std::string> {
            fuzz::check(index < seen.size());
            const auto& before = seen[index];
            const auto& replacement = replacements[index];
            ++index;
            fuzz::check(reference.kind == before.kind);
            fuzz::check(reference.url.absoluteString() ==
                        (replacement ? *replacement : before.url.absoluteString()));
            fuzz::check(reference.byteRange ==
                        (replacement && !options.keepByteRanges ? std::nullopt : before.byteRange));
            return std::nullopt;
        },
        options);
    fuzz::check(index == seen.size());
    fuzz::check(second.text == first.text);
    fuzz::check(second.segments.size() == first.segments.size());
    for (std::size_t i = 0; i < first.segments.size(); ++i) {
        auto before = first.segments[i];
        auto after = second.segments[i];
        before.url = after.url = std::nullopt;
        before.byteRange = after.byteRange = std::nullopt;
        fuzz::check(before == after);
    }
    fuzz::check(second.variants.size() == first.variants.size());
    fuzz::check(second.renditions.size() == first.renditions.size());
    fuzz::check(second.keys.size() == first.keys.size());
    fuzz::check(second.dateRanges == first.dateRanges);
    fuzz::check(second.isMasterPlaylist == first.isMasterPlaylist);

    auto kept = Rewriter::rewrite(text, playlistUrl(), keep, options);
    checkModel(kept);
    auto keptAgain = Rewriter::rewrite(kept.text, playlistUrl(), keep, options);
    fuzz::check(keptAgain == kept);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    run(fuzz::text(data, size), {.keepByteRanges = false});
    run(fuzz::text(data, size), {.keepByteRanges = true});
    return 0;
}
