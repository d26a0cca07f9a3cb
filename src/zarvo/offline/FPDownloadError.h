#pragma once

#include <optional>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// Failures of downloads and of their persistent keys, in the domain "FPDownloadErrorDomain";
/// the code is the case's position below. `unexpectedError` wraps another error, kept as the
/// inner error. Each case has its description (see makeFPDownloadError()); the SDK itself makes
/// unexpectedError, missingApplicationCertificate, noCKCReturnedByKSM, keyNotFoundLocally and
/// hlsPlaylistUrlRedirectionFail.
enum class FPDownloadError : long {
    /// "An unexpected error occurred." The wrapped error is the inner error.
    unexpectedError = 0,
    /// "The download was cancelled."
    cancelled = 1,
    /// "The download has no asset."
    noUrlAsset = 2,
    /// "The downloaded asset could not be found."
    assetNotFound = 3,
    /// "The bookmark of the downloaded asset is stale."
    staleBookamarkData = 4,
    /// "The location of the downloaded asset could not be made from its bookmark."
    createUrlFromBookmarkError = 5,
    /// "HLS downloads are not supported on this device."
    hlsNotSupportedOnSimulator = 6,
    /// "The application certificate is missing." The offline key loader could not fetch the
    /// certificate, or make the licence request's address.
    missingApplicationCertificate = 7,
    /// "The application certificate could not be downloaded."
    unableToDownloadApplicationCertificate = 8,
    /// "The key server returned no content key." The licence request got no answer.
    noCKCReturnedByKSM = 9,
    /// "The content key was not found on this device." A stored key file could not be read.
    keyNotFoundLocally = 10,
    /// "The playlist's redirection could not be followed." The HEAD request that
    /// ZMOfflineManager::startDownload() makes got no answer.
    hlsPlaylistUrlRedirectionFail = 11,
};

/// "FPDownloadErrorDomain".
inline constexpr const char* fpDownloadErrorDomain = "FPDownloadErrorDomain";

/// An Error in fpDownloadErrorDomain with a description of the case; `inner` (the wrapped error
/// of unexpectedError) is kept as its inner error and its localized description is appended to
/// the description, after a space.
ZARVO_EXPORT Error makeFPDownloadError(FPDownloadError code,
                                       std::optional<Error> inner = std::nullopt);
/// Whether `error` is of fpDownloadErrorDomain with the code of `code`.
ZARVO_EXPORT bool isFPDownloadError(const Error& error, FPDownloadError code);

}  // namespace zarvo
