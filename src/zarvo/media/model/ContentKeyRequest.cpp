#include "zarvo/media/model/ContentKeyRequest.h"

#include <utility>

#include "zarvo/platform/Json.h"

namespace zarvo {

namespace {

constexpr std::string_view certificateMagic = "ZMFC";
constexpr std::string_view persistentKeyMagic = "ZMPK";
constexpr char formatVersion = 0x01;
constexpr int requestVersion = 1;

}  // namespace

Error ContentKeyRequest::makeError(ErrorCode code, std::string description) {
    return Error::withDescription(errorDomain, static_cast<long>(code), std::move(description));
}

std::variant<ContentKeyRequest, Error> ContentKeyRequest::make(std::string_view certificate,
                                                               std::string contentIdentifier,
                                                               bool wantsPersistentKey) {
    auto identifier = identifierOfCertificate(certificate);
    if (!identifier) {
        return makeError(ErrorCode::invalidCertificate, "The application certificate is invalid.");
    }
    if (contentIdentifier.empty()) {
        return makeError(ErrorCode::invalidContentId, "The content identifier is empty.");
    }
    return ContentKeyRequest{std::move(contentIdentifier), wantsPersistentKey,
                             std::move(*identifier)};
}

Data ContentKeyRequest::encode() const {
    Json object = Json::object();
    object["version"] = requestVersion;
    object["contentId"] = contentIdentifier;
    object["persistent"] = wantsPersistentKey;
    object["certificate"] = certificateIdentifier;
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::variant<ContentKeyRequest, Error> ContentKeyRequest::decode(std::string_view bytes) {
    Json object = Json::parse(bytes, nullptr, false);
    if (object.is_discarded() || !object.is_object()) {
        return makeError(ErrorCode::malformedRequest, "The key request is not a JSON object.");
    }
    auto version = object.find("version");
    if (version == object.end() || !version->is_number_integer()) {
        return makeError(ErrorCode::malformedRequest, "The key request has no version.");
    }
    if (version->get<long long>() != requestVersion) {
        return makeError(ErrorCode::unsupportedVersion,
                         "The key request version " + std::to_string(version->get<long long>()) +
                             " is not supported.");
    }
    auto contentId = object.find("contentId");
    auto persistent = object.find("persistent");
    auto certificate = object.find("certificate");
    if (contentId == object.end() || !contentId->is_string()) {
        return makeError(ErrorCode::malformedRequest, "The key request has no content identifier.");
    }
    if (persistent == object.end() || !persistent->is_boolean()) {
        return makeError(ErrorCode::malformedRequest,
                         "The key request does not say whether a persistent key is wanted.");
    }
    if (certificate == object.end() || !certificate->is_string()) {
        return makeError(ErrorCode::malformedRequest, "The key request names no certificate.");
    }
    ContentKeyRequest request{contentId->get<std::string>(), persistent->get<bool>(),
                              certificate->get<std::string>()};
    if (request.contentIdentifier.empty()) {
        return makeError(ErrorCode::invalidContentId, "The content identifier is empty.");
    }
    return request;
}

Data ContentKeyRequest::makeCertificate(std::string_view identifier) {
    Data blob(certificateMagic);
    blob.push_back(formatVersion);
    blob.append(identifier.substr(0, 255));
    return blob;
}

std::optional<std::string> ContentKeyRequest::identifierOfCertificate(
    std::string_view certificate) {
    const std::size_t header = certificateMagic.size() + 1;
    if (certificate.size() <= header || certificate.size() > header + 255 ||
        certificate.substr(0, certificateMagic.size()) != certificateMagic ||
        certificate[certificateMagic.size()] != formatVersion) {
        return std::nullopt;
    }
    return std::string(certificate.substr(header));
}

std::optional<Data> ContentKeyRequest::contentKey(std::string_view keyResponse) {
    if (keyResponse.size() != keyLength) {
        return std::nullopt;
    }
    return Data(keyResponse);
}

std::optional<Data> ContentKeyRequest::makePersistentKey(std::string_view keyResponse) {
    auto key = contentKey(keyResponse);
    if (!key) {
        return std::nullopt;
    }
    Data envelope(persistentKeyMagic);
    envelope.push_back(formatVersion);
    envelope.append(*key);
    return envelope;
}

std::optional<Data> ContentKeyRequest::contentKeyFromPersistentKey(std::string_view persistentKey) {
    const std::size_t header = persistentKeyMagic.size() + 1;
    if (persistentKey.size() != header + keyLength ||
        persistentKey.substr(0, persistentKeyMagic.size()) != persistentKeyMagic ||
        persistentKey[persistentKeyMagic.size()] != formatVersion) {
        return std::nullopt;
    }
    return Data(persistentKey.substr(header));
}

}  // namespace zarvo
