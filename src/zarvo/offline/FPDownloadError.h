#pragma once

#include <optional>

#include "zarvo/platform/Error.h"

namespace zarvo {

// Failures of offline downloads and their keys, in the domain "FPDownloadError". The case that
// wraps another error keeps it as the inner error.
enum class FPDownloadError : long {
    unexpectedError = 0,
    cancelled = 1,
    noUrlAsset = 2,
    assetNotFound = 3,
    staleBookamarkData = 4,
    createUrlFromBookmarkError = 5,
    hlsNotSupportedOnSimulator = 6,
    missingApplicationCertificate = 7,
    unableToDownloadApplicationCertificate = 8,
    noCKCReturnedByKSM = 9,
    keyNotFoundLocally = 10,
    hlsPlaylistUrlRedirectionFail = 11,
};

inline constexpr const char* fpDownloadErrorDomain = "FPDownloadError";

Error makeFPDownloadError(FPDownloadError code, std::optional<Error> inner = std::nullopt);
bool isFPDownloadError(const Error& error, FPDownloadError code);

}  // namespace zarvo
