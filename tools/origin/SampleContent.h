#pragma once

#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// The origin's HLS content, made once with the ffmpeg tool and kept in a cache folder named
// after a hash of the recipe. Layout of the folder:
//   vod/        master.m3u8; v0, v1 (byte ranges into one file), v2; a_pol, a_eng; subs
//   protected/  the same renditions in AES-128 with the key URI "skd://zm-sample-1"
//   variants.txt  one "name width height bandwidth" line per video variant
class SampleContent {
public:
    struct Variant {
        std::string name;  // folder, e.g. "v0"
        int width = 0;
        int height = 0;
        long long bandwidth = 0;  // bits per second, video plus audio peak
    };

    static constexpr const char* contentIdentifier = "zm-sample-1";
    static constexpr const char* errorDomain = "ZMOriginErrorDomain";

    // Finds the content under `cacheRoot`, making it first when missing. Processes that call
    // this at once wait for each other, and only one of them runs ffmpeg. An empty root means
    // defaultCacheRoot().
    static std::variant<SampleContent, Error> prepare(std::filesystem::path cacheRoot = {});
    // $ZM_ORIGIN_CACHE, else $XDG_CACHE_HOME/zarvo/origin, else ~/.cache/zarvo/origin.
    static std::filesystem::path defaultCacheRoot();
    // Hex hash of everything that shapes the content; it names the cache folder.
    static std::string recipeHash();

    const std::filesystem::path& directory() const { return directory_; }
    const Data& contentKey() const { return contentKey_; }
    const std::vector<Variant>& variants() const { return variants_; }

    // A master playlist over the renditions, with relative URIs. `uriQuery` (without "?"),
    // when not empty, is appended to every URI so parameters of the master reach the media
    // playlists.
    std::string masterPlaylist(bool withSubtitles, const std::string& uriQuery = {}) const;

private:
    static std::variant<SampleContent, Error> load(const std::filesystem::path& directory);

    std::filesystem::path directory_;
    Data contentKey_;
    std::vector<Variant> variants_;
};

}  // namespace zarvo::origin
