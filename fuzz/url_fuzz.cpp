// URL references from playlists, stored records and hosts: parsing any text gives a URL or
// none; a URL's text parses back to the same URL; resolving against an absolute base gives an
// absolute URL; components that parse give a text that parses to the same components.
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlComponents.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    const std::string_view text = fuzz::text(data, size);
    if (auto url = Url::parse(text)) {
        auto again = Url::parse(url->absoluteString());
        fuzz::check(again && again->absoluteString() == url->absoluteString());
    }
    static const Url base = *Url::parse("https://cdn.example:8443/live/a/master.m3u8?token=x");
    if (auto resolved = Url::parse(text, base)) {
        fuzz::check(!resolved->scheme().empty());
    }
    if (auto components = UrlComponents::parse(text)) {
        if (auto written = components->string()) {
            auto again = UrlComponents::parse(*written);
            fuzz::check(again && again->string() == written);
        }
    }
    return 0;
}
