#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/hls/MediaPlaylist.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// A master playlist: its variants in the order of their URI lines.
class ZARVO_EXPORT MasterPlaylist {
public:
    std::vector<std::shared_ptr<MediaPlaylist>> playlists;
    std::optional<std::string> path;

    void addPlaylist(std::shared_ptr<MediaPlaylist> playlist);
    // The playlist at `index`, or nullptr when the index is outside the list.
    std::shared_ptr<MediaPlaylist> getPlaylist(std::int64_t index) const;
    std::int64_t getPlaylistCount() const { return static_cast<std::int64_t>(playlists.size()); }
};

}  // namespace zarvo
