#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "zarvo/platform/Date.h"

#include "origin/LivePlaylist.h"

namespace zarvo::origin {

// How a SampleOrigin runs.
struct OriginOptions {
    // Loopback only: anything other than 127.0.0.1 / localhost is refused at start.
    std::string host = "127.0.0.1";
    int port = 0;  // 0 picks a free port
    // Wall-clock time for the live and DVR windows; empty means Scheduler::standard()->now(),
    // so tests that install a ManualScheduler move the live edge.
    std::function<Date()> clock;
    // Where the generated content is cached; empty means SampleContent::defaultCacheRoot().
    std::filesystem::path cacheRoot;
    LivePlaylist::Schedule schedule;
    // Headers every licence request must carry (name -> exact value); 403 otherwise.
    std::map<std::string, std::string> requiredLicenseHeaders;
    // Headers every request for content (playlists, segments, subtitles) must carry; 403
    // otherwise.
    std::map<std::string, std::string> requiredContentHeaders;
    // The identifier inside the application certificate the origin serves.
    std::string certificateIdentifier = "zm-origin-cert-1";
    // Also serves the 1080p50 VOD (FullHdContent) under /hd/; start() makes it first when it is
    // not in the cache yet, which takes a while.
    bool fullHd = false;
};

}  // namespace zarvo::origin
