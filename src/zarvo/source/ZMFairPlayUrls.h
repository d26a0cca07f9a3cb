#pragma once

#include <map>
#include <string>
#include <utility>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// Where the FairPlay key loader gets the application certificate and the content keys, and
// the extra HTTP header fields it sends with each licence request.
class ZARVO_EXPORT ZMFairPlayUrls {
public:
    ZMFairPlayUrls(Url serverCertUrl, Url licenseUrl,
                   std::map<std::string, std::string> headerFields = {})
        : serverCertUrl_(std::move(serverCertUrl)),
          licenseUrl_(std::move(licenseUrl)),
          headerFields_(std::move(headerFields)) {}

    const Url& serverCertUrl() const { return serverCertUrl_; }
    const Url& licenseUrl() const { return licenseUrl_; }
    const std::map<std::string, std::string>& headerFields() const { return headerFields_; }

    bool operator==(const ZMFairPlayUrls&) const = default;

private:
    Url serverCertUrl_;
    Url licenseUrl_;
    std::map<std::string, std::string> headerFields_;
};

}  // namespace zarvo
