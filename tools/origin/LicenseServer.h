#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "zarvo/platform/Data.h"

namespace zarvo::origin {

// The clear-key licence service: hands out the application certificate and answers key
// requests (see zarvo::ContentKeyRequest) with content keys.
class LicenseServer {
public:
    struct Answer {
        int status = 200;
        Data body;
        std::string contentType = "application/octet-stream";
    };
    using HeaderLookup = std::function<std::optional<std::string>(const std::string& name)>;

    LicenseServer(std::string certificateIdentifier, std::map<std::string, Data> contentKeys,
                  std::map<std::string, std::string> requiredHeaders = {});

    Answer certificate() const;
    // 200 with the 16-byte key; 403 when a required header is missing or differs; 400 with a
    // text naming the problem for a missing or malformed request, a request made for another
    // certificate or an unknown content identifier.
    Answer license(const HeaderLookup& header, std::string_view body) const;

private:
    std::string certificateIdentifier_;
    std::map<std::string, Data> contentKeys_;
    std::map<std::string, std::string> requiredHeaders_;
};

}  // namespace zarvo::origin
