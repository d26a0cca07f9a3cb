#pragma once

#include <map>
#include <memory>
#include <string>

#include "zarvo/platform/Url.h"

namespace zarvo {

// A media asset named by a URL: an HLS playlist on a server or a downloaded package on disk,
// with the options it is opened with. Shared by the objects that load or play it.
class UrlAsset {
public:
    struct Options {
        // HTTP header fields sent with every request made for the asset.
        std::map<std::string, std::string> httpHeaderFields;

        bool operator==(const Options&) const = default;
    };

    static std::shared_ptr<UrlAsset> make(Url url, Options options = {});

    UrlAsset(Url url, Options options);
    virtual ~UrlAsset() = default;
    UrlAsset(const UrlAsset&) = delete;
    UrlAsset& operator=(const UrlAsset&) = delete;

    const Url& url() const { return url_; }
    const Options& options() const { return options_; }

private:
    Url url_;
    Options options_;
};

}  // namespace zarvo
