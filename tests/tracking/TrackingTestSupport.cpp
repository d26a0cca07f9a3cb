#include "TrackingTestSupport.h"

#include <fstream>
#include <iterator>

#include "zarvo/platform/UrlComponents.h"
#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

namespace zarvo {
void PrintTo(const ZMTrackingSessionError& error, std::ostream* out) {
    *out << error.description();
}
}  // namespace zarvo

namespace zarvo::test {

ZMTrackingSessionDeviceInfo sampleDevice() {
    return {"x86_64",   "1.0 (7)", "0f8e2a10-5b8c-4e6e-9b1c-1d2e3f405162",
            "Apple",    "HLS",     "Linux",
            "12",       "LINUX",   "0.1.0",
            "AVPLAYER", "PC",      "V1"};
}

ZMTrackingSessionContentInfo sampleContent(const std::string& endpointUrl) {
    return {101, 202, 3600, endpointUrl, 303, "VOD", "S-42", 404, "http://cdn.test/a.m3u8"};
}

std::vector<UrlQueryItem> queryItems(const std::string& rawQuery) {
    UrlComponents components;
    components.setPercentEncodedQuery(rawQuery);
    return components.queryItems().value_or(std::vector<UrlQueryItem>{});
}

std::optional<std::string> queryValue(const std::string& rawQuery, const std::string& name) {
    for (const auto& item : queryItems(rawQuery)) {
        if (item.name == name) {
            return item.value;
        }
    }
    return std::nullopt;
}

std::filesystem::path trackingDirectory() {
    return ZMTrackingSessionStorageUrls::directory();
}

std::optional<ZMTrackingSessionStorageData> readSessionFile(const std::filesystem::path& path) {
    std::ifstream in(path);
    if (!in) {
        return std::nullopt;
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return ZMTrackingSessionStorageData::decode(text);
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

}  // namespace zarvo::test
