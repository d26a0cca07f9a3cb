#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// The errors of the domain "ZMPlayerErrorDomain". The key loader of protected streams ends a
/// key request with code 10 (the player then reports a "ZMMediaErrorDomain" error with it as
/// the inner error); the master-playlist split of ZMOfflineStreamInfoReader fails with codes 12
/// and 13.
struct ZARVO_EXPORT ZMPlayerError {
    /// "ZMPlayerErrorDomain".
    static constexpr const char* domain = "ZMPlayerErrorDomain";

    /// The codes of the domain.
    enum Code : long {
        /// A step of the key exchange failed.
        fairPlayInitializationCode = 10,
        /// The master playlist could not be downloaded.
        playlistDownloadCode = 12,
        /// The master playlist could not be split into its lines.
        playlistParsingCode = 13,
    };

    /// Code 10: `FairPlay initialization error with code <status>`, where the key loader's
    /// status is the number of the step that failed (see FairPlayAssetLoaderDelegate).
    static Error fairPlayInitialization(long status);
    /// Code 12: "Could not download HLS playlist.", with the cause as inner error if given.
    static Error playlistDownload(std::optional<Error> innerError = std::nullopt);
    /// Code 13 with the given message, such as "No root path".
    static Error playlistParsing(std::string message);
};

}  // namespace zarvo
