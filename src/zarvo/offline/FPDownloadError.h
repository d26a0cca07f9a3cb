#pragma once

#include <optional>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// Failures of downloads and of their persistent keys, in the domain "FPDownloadErrorDomain";
// the code is the case's position below. `unexpectedError` wraps another error, kept as the
// inner error.
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

inline constexpr const char* fpDownloadErrorDomain = "FPDownloadErrorDomain";

// An Error in fpDownloadErrorDomain with a description of the case; `inner` (the wrapped error
// of unexpectedError) is kept as its inner error and named in its description.
ZARVO_EXPORT Error makeFPDownloadError(FPDownloadError code,
                                       std::optional<Error> inner = std::nullopt);
ZARVO_EXPORT bool isFPDownloadError(const Error& error, FPDownloadError code);

}  // namespace zarvo
