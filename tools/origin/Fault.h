#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zarvo::origin {

// A misbehaviour the origin applies to requests whose path starts with `pathPrefix`.
// Several effects may be combined: the delay comes first, then a dropped connection or a
// status answer, else the normal answer sent slowly and/or cut short.
struct Fault {
    std::string pathPrefix;
    std::optional<int> status;                      // answer this status with a text body
    double delaySeconds = 0;                        // wait before answering
    std::optional<std::size_t> bytesPerSecond;      // cap the body's transfer rate
    std::optional<std::size_t> truncateAfterBytes;  // close after this many body bytes
    bool dropConnection = false;                    // close without answering
    std::optional<int> count;                       // only the next N matching requests
    double fraction = 1.0;                          // share of matching requests affected

    // "PREFIX:STATUS[:COUNT]", e.g. "/vod/v2/:503:3".
    static std::optional<Fault> parseStatus(std::string_view text);
    // "PREFIX:MS", e.g. "/fps/license:1500".
    static std::optional<Fault> parseDelay(std::string_view text);
};

}  // namespace zarvo::origin
