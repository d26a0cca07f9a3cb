#include "zarvo/hls/MasterPlaylist.h"

namespace zarvo {

void MasterPlaylist::addPlaylist(std::shared_ptr<MediaPlaylist> playlist) {
    playlists.push_back(std::move(playlist));
}

std::shared_ptr<MediaPlaylist> MasterPlaylist::getPlaylist(std::int64_t index) const {
    if (index < 0 || index >= getPlaylistCount()) {
        return nullptr;
    }
    return playlists[static_cast<std::size_t>(index)];
}

}  // namespace zarvo
