#include "origin/LicenseServer.h"

#include <utility>
#include <variant>

#include "zarvo/media/model/ContentKeyRequest.h"

namespace zarvo::origin {

namespace {

LicenseServer::Answer textAnswer(int status, std::string text) {
    return LicenseServer::Answer{status, std::move(text), "text/plain"};
}

}  // namespace

LicenseServer::LicenseServer(std::string certificateIdentifier,
                             std::map<std::string, Data> contentKeys,
                             std::map<std::string, std::string> requiredHeaders)
    : certificateIdentifier_(std::move(certificateIdentifier)),
      contentKeys_(std::move(contentKeys)),
      requiredHeaders_(std::move(requiredHeaders)) {}

LicenseServer::Answer LicenseServer::certificate() const {
    return Answer{200, ContentKeyRequest::makeCertificate(certificateIdentifier_),
                  "application/octet-stream"};
}

LicenseServer::Answer LicenseServer::license(const HeaderLookup& header,
                                             std::string_view body) const {
    for (const auto& [name, value] : requiredHeaders_) {
        auto sent = header(name);
        if (!sent) {
            return textAnswer(403, "Missing required header " + name + ".");
        }
        if (*sent != value) {
            return textAnswer(403, "Wrong value of header " + name + ".");
        }
    }
    if (body.empty()) {
        return textAnswer(400, "Empty key request.");
    }
    auto decoded = ContentKeyRequest::decode(body);
    if (auto* error = std::get_if<Error>(&decoded)) {
        return textAnswer(400, error->localizedDescription());
    }
    const auto& request = std::get<ContentKeyRequest>(decoded);
    if (request.certificateIdentifier != certificateIdentifier_) {
        return textAnswer(400, "The key request was made for an unknown certificate \"" +
                                   request.certificateIdentifier + "\".");
    }
    auto key = contentKeys_.find(request.contentIdentifier);
    if (key == contentKeys_.end()) {
        return textAnswer(400, "Unknown content identifier \"" + request.contentIdentifier + "\".");
    }
    return Answer{200, key->second, "application/octet-stream"};
}

}  // namespace zarvo::origin
