#pragma once

#include <cstddef>

namespace zarvo {

// The longest bodies the SDK takes whole into memory. A longer one fails its request with
// UrlError::dataLengthExceedsMaximum, so that a server sending without end cannot grow the
// process without end. Segments never count: they are streamed through or written to disk.
struct ResponseLimits {
    // A master or media playlist (a day of 2-second segments is well under 1 MiB).
    static constexpr std::size_t playlist = 16 * 1024 * 1024;
    // A content key, a key request's answer from a licence server, an application certificate.
    static constexpr std::size_t keyAnswer = 16 * 1024 * 1024;
};

}  // namespace zarvo
