#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The errors of the domain "ZMPlayerErrorDomain" that the player reports to the application.
struct ZARVO_EXPORT ZMPlayerError {
    static constexpr const char* domain = "ZMPlayerErrorDomain";

    enum Code : long {
        fairPlayInitializationCode = 10,
        playlistDownloadCode = 12,
        playlistParsingCode = 13,
    };

    // Code 10: "FairPlay initialization error with code <status>".
    static Error fairPlayInitialization(long status);
    // Code 12: "Could not download HLS playlist.", with the cause under "InnerError" if given.
    static Error playlistDownload(std::optional<Error> innerError = std::nullopt);
    // Code 13 with the given message.
    static Error playlistParsing(std::string message);
};

}  // namespace zarvo
