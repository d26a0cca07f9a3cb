// Media playlists: any text parses; segments are numbered consecutively within a run and
// point back to their playlist. The duration sum may stop on a segment without duration, as
// required.
#include "zarvo/hls/ManifestBuilder.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    fuzz::allowingRequiredFatalErrors([&] {
        std::size_t announced = 0;
        auto playlist = ManifestBuilder().parseMediaPlaylistFromString(
            fuzz::text(data, size), nullptr,
            [&](const std::shared_ptr<MediaSegment>&) { ++announced; });
        fuzz::check(announced == playlist->segments.size());
        for (const auto& segment : playlist->segments) {
            fuzz::check(segment->mediaPlaylist.lock() == playlist);
            fuzz::check(segment->path.has_value() && segment->title.has_value());
        }
        (void)playlist->duration();
    });
    return 0;
}
