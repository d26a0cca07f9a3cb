#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Failures of the media engine, in the domain "ZMMediaErrorDomain". The error that caused one
// (a transport error, the resource loader's error) is its inner error.
enum class MediaError : long {
    // A playlist or segment answered with an HTTP error status (user info "HTTPStatusCode").
    resourceUnavailable = 1,
    // A playlist or segment could not be fetched at all (the inner error says why).
    networkFailure = 2,
    // The resource loader declined a request, or finished it with an error (the inner error).
    resourceLoadingFailed = 3,
    // A content key answer that is neither a content key nor a persistent key.
    invalidContentKey = 4,
    // A GStreamer element the engine needs is not installed.
    missingElement = 5,
    // The pipeline failed (GStreamer's message; its debug text under "DebugInfo").
    playbackFailed = 6,
    // The master playlist is not an HLS playlist.
    invalidPlaylist = 7,
    // A downloaded file could not be written (the disk is full, a permission); the system's
    // text says which.
    writeFailed = 8,
};

inline constexpr const char* mediaErrorDomain = "ZMMediaErrorDomain";
inline constexpr const char* httpStatusCodeKey = "HTTPStatusCode";
inline constexpr const char* debugInfoKey = "DebugInfo";

Error makeMediaError(MediaError code, const std::string& description,
                     std::optional<Error> inner = std::nullopt, Error::UserInfo userInfo = {});
bool isMediaError(const Error& error, MediaError code);
// resourceUnavailable for `url` answered with HTTP `status`.
Error makeStatusError(const Url& url, int status);
// networkFailure for `url`, with the transport error inside.
Error makeTransportError(const Url& url, const Error& error);

}  // namespace zarvo
