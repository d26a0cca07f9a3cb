#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "zarvo/platform/UrlQueryItem.h"
#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"
#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"

namespace zarvo {
// Readable test failure output.
void PrintTo(const ZMTrackingSessionError& error, std::ostream* out);
}  // namespace zarvo

namespace zarvo::test {

ZMTrackingSessionDeviceInfo sampleDevice();
ZMTrackingSessionContentInfo sampleContent(const std::string& endpointUrl);

// The decoded items of a raw query.
std::vector<UrlQueryItem> queryItems(const std::string& rawQuery);
std::optional<std::string> queryValue(const std::string& rawQuery, const std::string& name);

// The session files in the current home.
std::filesystem::path trackingDirectory();
std::optional<ZMTrackingSessionStorageData> readSessionFile(const std::filesystem::path& path);
void writeText(const std::filesystem::path& path, const std::string& text);

}  // namespace zarvo::test
