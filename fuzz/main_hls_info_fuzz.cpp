// The master-playlist split: any text gives either a filled object or one code-13 error,
// and every variant and rendition URL it produced is absolute.
#include "zarvo/source/MainHLSInfo.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    std::string_view input = fuzz::text(data, size);
    std::string_view query = !input.empty() && (input[0] & 1) ? "token=abc" : "";
    auto result = MainHLSInfo::split(input, "http://127.0.0.1:8080/vod/", query);
    fuzz::check((result.info == nullptr) != !result.error.has_value());
    if (result.error) {
        fuzz::check(result.error->code() == 13);
        return 0;
    }
    for (const auto& stream : result.info->streams) {
        fuzz::check(stream.playlistUrl.absoluteString().rfind("http", 0) == 0);
    }
    for (const auto& media : result.info->media) {
        fuzz::check(media.playlistUrl.absoluteString().rfind("http", 0) == 0);
    }
    return 0;
}
