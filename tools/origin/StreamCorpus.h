#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// HLS streams of the shapes that common packagers make, written by the ffmpeg tool (with a few
// playlists by hand where a packager's habits matter more than its tool) and kept in a cache
// folder named after a hash of the recipe. Each shape is a folder of the corpus, meant to be
// served as it lies by a plain static file server whose root is the corpus folder (the "paths"
// shape names its segments by absolute paths from that root). Every clip is a few seconds of
// test pattern and tone.
class StreamCorpus {
public:
    struct Shape {
        std::string name;        // its folder, e.g. "fmp4"
        std::string masterPath;  // from the server's root: "/fmp4/master.m3u8"
        std::string mediaPath;   // its main media playlist: "/fmp4/index.m3u8"
        double duration = 0;     // seconds
        // A download through the master holds these media playlists of the package (left),
        // each made from the stream's playlist at the path on the right.
        std::vector<std::pair<std::string, std::string>> packaged;
    };

    // The shapes, in the order the corpus lists them.
    static const std::vector<Shape>& shapes();

    // Finds the corpus under `cacheRoot` (ContentCache::defaultRoot() when empty), making it
    // first when missing.
    static std::variant<StreamCorpus, Error> prepare(std::filesystem::path cacheRoot = {});
    // Everything that shapes the corpus; its hash names the cache folder.
    static std::string recipe();
    // The 16 bytes of the "aes" shape's key.
    static std::string contentKey();

    const std::filesystem::path& directory() const { return directory_; }

private:
    friend class ContentCache;
    explicit StreamCorpus(std::filesystem::path directory) : directory_(std::move(directory)) {}

    std::filesystem::path directory_;
};

}  // namespace zarvo::origin
