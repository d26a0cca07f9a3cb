#include "zarvo/offline/FPDownloadError.h"

#include <string>
#include <utility>

namespace zarvo {
namespace {

const char* describe(FPDownloadError code) {
    switch (code) {
        case FPDownloadError::unexpectedError:
            return "An unexpected error occurred.";
        case FPDownloadError::cancelled:
            return "The download was cancelled.";
        case FPDownloadError::noUrlAsset:
            return "The download has no asset.";
        case FPDownloadError::assetNotFound:
            return "The downloaded asset could not be found.";
        case FPDownloadError::staleBookamarkData:
            return "The bookmark of the downloaded asset is stale.";
        case FPDownloadError::createUrlFromBookmarkError:
            return "The location of the downloaded asset could not be made from its bookmark.";
        case FPDownloadError::hlsNotSupportedOnSimulator:
            return "HLS downloads are not supported on this device.";
        case FPDownloadError::missingApplicationCertificate:
            return "The application certificate is missing.";
        case FPDownloadError::unableToDownloadApplicationCertificate:
            return "The application certificate could not be downloaded.";
        case FPDownloadError::noCKCReturnedByKSM:
            return "The key server returned no content key.";
        case FPDownloadError::keyNotFoundLocally:
            return "The content key was not found on this device.";
        case FPDownloadError::hlsPlaylistUrlRedirectionFail:
            return "The playlist's redirection could not be followed.";
    }
    return "An unknown download error occurred.";
}

}  // namespace

Error makeFPDownloadError(FPDownloadError code, std::optional<Error> inner) {
    std::string description = describe(code);
    if (inner) {
        description += " " + inner->localizedDescription();
    }
    return Error(fpDownloadErrorDomain, static_cast<long>(code),
                 {{Error::localizedDescriptionKey, std::move(description)}}, std::move(inner));
}

bool isFPDownloadError(const Error& error, FPDownloadError code) {
    return error.domain() == fpDownloadErrorDomain && error.code() == static_cast<long>(code);
}

}  // namespace zarvo
