#include "zarvo/offline/FPDownloadError.h"

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
            return "The downloaded asset was not found.";
        case FPDownloadError::staleBookamarkData:
            return "The bookmark of the download is stale.";
        case FPDownloadError::createUrlFromBookmarkError:
            return "No URL could be made from the download's bookmark.";
        case FPDownloadError::hlsNotSupportedOnSimulator:
            return "HLS downloads are not supported here.";
        case FPDownloadError::missingApplicationCertificate:
            return "The application certificate is missing.";
        case FPDownloadError::unableToDownloadApplicationCertificate:
            return "The application certificate could not be downloaded.";
        case FPDownloadError::noCKCReturnedByKSM:
            return "The key server returned no content key context.";
        case FPDownloadError::keyNotFoundLocally:
            return "The content key was not found on this device.";
        case FPDownloadError::hlsPlaylistUrlRedirectionFail:
            return "The playlist address could not be resolved.";
    }
    return "An unexpected error occurred.";
}

}  // namespace

Error makeFPDownloadError(FPDownloadError code, std::optional<Error> inner) {
    return Error(fpDownloadErrorDomain, static_cast<long>(code),
                 {{Error::localizedDescriptionKey, describe(code)}}, std::move(inner));
}

bool isFPDownloadError(const Error& error, FPDownloadError code) {
    return error.domain() == fpDownloadErrorDomain && error.code() == static_cast<long>(code);
}

}  // namespace zarvo
