// Master playlists: any text parses (or stops on a non-integer program id or bandwidth, as
// required), and every listed playlist points back to its master.
#include "zarvo/hls/ManifestBuilder.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    fuzz::allowingRequiredFatalErrors([&] {
        std::size_t announced = 0;
        auto master = ManifestBuilder().parseMasterPlaylistFromString(
            fuzz::text(data, size), [&](const std::shared_ptr<MediaPlaylist>&) { ++announced; });
        fuzz::check(announced == master->playlists.size());
        for (const auto& playlist : master->playlists) {
            fuzz::check(playlist->masterPlaylist.lock() == master);
            fuzz::check(playlist->path && !playlist->path->empty() && (*playlist->path)[0] != '#');
        }
    });
    return 0;
}
