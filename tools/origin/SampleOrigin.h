#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Error.h"

#include "origin/BeaconLog.h"
#include "origin/FaultInjector.h"
#include "origin/OriginOptions.h"
#include "origin/SampleContent.h"

namespace zarvo::origin {

// The sample origin on loopback: HLS content (VOD, protected VOD, live, live with DVR), the
// clear-key certificate and licence endpoints, and a tracking-beacon collector.
//
//   /vod/master.m3u8, /protected/master.m3u8, /live/master.m3u8, /dvr/master.m3u8 (+ children)
//   /hd/master.m3u8 (+ children) with OriginOptions::fullHd
//   GET /fps/cert, POST /fps/license
//   GET /track/<anything>/init.gif, /track/<anything>/events.gif   (recorded; 1x1 GIF)
//   GET /track/received (JSON of the recorded beacons), DELETE /track/received
//   GET /redirect?to=<path>   (302 to that path)
class SampleOrigin {
public:
    explicit SampleOrigin(OriginOptions options = {});
    ~SampleOrigin();
    SampleOrigin(const SampleOrigin&) = delete;
    SampleOrigin& operator=(const SampleOrigin&) = delete;

    // Prepares the content (generating it on first use) and starts serving. Fails for a
    // non-loopback host, a busy port or content that cannot be made.
    std::optional<Error> start();
    // Stops serving; waiting requests are cut short. Also done by the destructor.
    void stop();
    bool isRunning() const;

    int port() const;
    std::string baseUrl() const;                     // "http://127.0.0.1:<port>"
    std::string url(const std::string& path) const;  // baseUrl() + path

    BeaconLog& beacons();
    FaultInjector& faults();
    // Valid once start() succeeded.
    const SampleContent& content() const;
    const LivePlaylist& livePlaylist() const;
    // "METHOD /path" (with "?query" as sent when there is one) of every request received, in
    // order (for checks of client traffic). requestCount matches the path and query text.
    std::vector<std::string> requests() const;
    std::size_t requestCount(const std::string& pathPrefix) const;
    void clearRequests();
    // The origin's current wall-clock time (its clock option).
    Date now() const;

    static bool isLoopbackHost(const std::string& host);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zarvo::origin
