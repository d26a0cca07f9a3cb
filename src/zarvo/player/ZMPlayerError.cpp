#include "zarvo/player/ZMPlayerError.h"

namespace zarvo {

Error ZMPlayerError::fairPlayInitialization(long status) {
    return Error::withDescription(
        domain, fairPlayInitializationCode,
        "FairPlay initialization error with code " + std::to_string(status));
}

Error ZMPlayerError::playlistDownload(std::optional<Error> innerError) {
    return Error(domain, playlistDownloadCode,
                 {{Error::localizedDescriptionKey, "Could not download HLS playlist."}},
                 std::move(innerError));
}

Error ZMPlayerError::playlistParsing(std::string message) {
    return Error::withDescription(domain, playlistParsingCode, std::move(message));
}

}  // namespace zarvo
