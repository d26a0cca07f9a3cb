#pragma once

#include <map>
#include <string>
#include <utility>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

/// Where the FairPlay key loader gets the application certificate and the content keys, and
/// the extra HTTP header fields it sends with each licence request.
class ZARVO_EXPORT ZMFairPlayUrls {
public:
    /// The certificate's and the licence server's addresses, and the licence requests' extra
    /// header fields.
    ZMFairPlayUrls(Url serverCertUrl, Url licenseUrl,
                   std::map<std::string, std::string> headerFields = {})
        : serverCertUrl_(std::move(serverCertUrl)),
          licenseUrl_(std::move(licenseUrl)),
          headerFields_(std::move(headerFields)) {}

    /// Where the application certificate is fetched (GET).
    const Url& serverCertUrl() const { return serverCertUrl_; }
    /// Where key requests are posted.
    const Url& licenseUrl() const { return licenseUrl_; }
    /// Header fields sent with each licence request, after its Content-Type
    /// ("application/octet-stream"), which a field of the same name replaces.
    const std::map<std::string, std::string>& headerFields() const { return headerFields_; }

    /// Equal addresses and fields.
    bool operator==(const ZMFairPlayUrls&) const = default;

private:
    Url serverCertUrl_;
    Url licenseUrl_;
    std::map<std::string, std::string> headerFields_;
};

}  // namespace zarvo
