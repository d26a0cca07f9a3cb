#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

// The clear-key content protection protocol spoken between the key loaders, the media engine
// and the licence server.
//
// Application certificate (served by the certificate URL):
//     "ZMFC" | version byte 0x01 | certificate identifier (UTF-8, 1 to 255 bytes)
//
// Key request ("SPC", posted to the licence server): a UTF-8 JSON object
//     {"version":1,"contentId":"<host of the skd URL>","persistent":<bool>,
//      "certificate":"<certificate identifier>"}
// Unknown members are ignored; the three named members and version 1 are required.
//
// Key response ("CKC", the licence server's answer): the 16-byte AES-128 content key, raw.
//
// Persistent key (stored by the offline key loaders):
//     "ZMPK" | version byte 0x01 | the 16-byte content key        (21 bytes)
struct ContentKeyRequest {
    static constexpr const char* errorDomain = "ZMContentKeyErrorDomain";
    static constexpr std::size_t keyLength = 16;

    enum class ErrorCode : long {
        invalidCertificate = 1,   // not a certificate blob of this protocol
        invalidContentId = 2,     // empty content identifier
        malformedRequest = 3,     // not JSON, not an object, or a required member missing
        unsupportedVersion = 4,   // a request version other than 1
        invalidKeyResponse = 5,   // a key response that is not 16 bytes
        invalidPersistentKey = 6  // a persistent key with the wrong magic, version or length
    };

    std::string contentIdentifier;
    bool wantsPersistentKey = false;
    std::string certificateIdentifier;

    // Builds the request a client makes for `contentIdentifier` with the certificate blob it
    // fetched; fails for a blob that is not a certificate or an empty identifier.
    static std::variant<ContentKeyRequest, Error> make(std::string_view certificate,
                                                       std::string contentIdentifier,
                                                       bool wantsPersistentKey);
    // The request's wire form (the JSON text above).
    Data encode() const;
    // Reads a posted request; fails with malformedRequest / unsupportedVersion /
    // invalidContentId and a description that names the problem.
    static std::variant<ContentKeyRequest, Error> decode(std::string_view bytes);

    // Certificate blobs.
    static Data makeCertificate(std::string_view identifier);
    static std::optional<std::string> identifierOfCertificate(std::string_view certificate);

    // The content key in a key response; nothing unless it is exactly 16 bytes.
    static std::optional<Data> contentKey(std::string_view keyResponse);
    // Wraps a key response into a persistent key; nothing for an invalid key response.
    static std::optional<Data> makePersistentKey(std::string_view keyResponse);
    // The content key inside a persistent key; nothing for anything else.
    static std::optional<Data> contentKeyFromPersistentKey(std::string_view persistentKey);

    static Error makeError(ErrorCode code, std::string description);

    bool operator==(const ContentKeyRequest&) const = default;
};

}  // namespace zarvo
