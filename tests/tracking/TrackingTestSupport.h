#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlComponents.h"
#include "zarvo/tracking/ZMTrackingSession.h"
#include "zarvo/tracking/ZMTrackingSessionStorageData.h"
#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"
#include "zarvo/tracking/ZMTrackingSessionsRestoreManager.h"

namespace zarvo {
// Readable test failure output.
inline void PrintTo(const ZMTrackingSessionError& error, std::ostream* out) {
    *out << error.description();
}
}  // namespace zarvo

namespace zarvo::test {

inline ZMTrackingSessionDeviceInfo sampleDevice() {
    return {"x86_64",   "1.0 (7)", "0f8e2a10-5b8c-4e6e-9b1c-1d2e3f405162",
            "Apple",    "HLS",     "Linux",
            "12",       "LINUX",   "0.1.0",
            "AVPLAYER", "PC",      "V1"};
}

inline ZMTrackingSessionContentInfo sampleContent(const std::string& endpointUrl) {
    return {101, 202, 3600, endpointUrl, 303, "VOD", "S-42", 404, "http://cdn.test/a.m3u8"};
}

inline std::vector<UrlQueryItem> queryItems(const std::string& rawQuery) {
    UrlComponents components;
    components.setPercentEncodedQuery(rawQuery);
    return components.queryItems().value_or(std::vector<UrlQueryItem>{});
}

inline std::optional<std::string> queryValue(const std::string& rawQuery, const std::string& name) {
    auto items = queryItems(rawQuery);
    auto found = std::find_if(items.begin(), items.end(), [&](auto& i) { return i.name == name; });
    return found == items.end() ? std::nullopt : found->value;
}

// The `item` value of every logged request or beacon to `path`, in order.
template <typename Log>
std::vector<std::string> sentValues(const Log& log, const std::string& path,
                                    const std::string& item) {
    std::vector<std::string> values;
    for (const auto& request : log) {
        if (request.path == path) {
            values.push_back(queryValue(request.rawQuery, item).value_or(""));
        }
    }
    return values;
}

// Waits for the session's beacon in flight, then runs what it posted to the main queue.
inline void settle(const std::shared_ptr<ZMTrackingSession>& session) {
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return !session->isAwaitingNetwork(); }));
    RunLoop::main().runUntilIdle();
}

// The session files in the current home.
inline std::filesystem::path trackingDirectory() {
    return ZMTrackingSessionStorageUrls::directory();
}

inline std::filesystem::path sessionFile(const Uuid& id) {
    return trackingDirectory() / id.uuidString();
}

inline void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

inline std::optional<ZMTrackingSessionStorageData> readSessionFile(
    const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return in ? ZMTrackingSessionStorageData::decode(text) : std::nullopt;
}

// Writes a session file as a live session would have left it; returns its id.
inline Uuid storeSession(const std::string& endpoint, ZMTrackingSessionStorageState state,
                         std::vector<ZMInternalTrackingEvent> events) {
    Uuid id;
    ZMTrackingSessionStorageData data(sampleDevice(), sampleContent(endpoint));
    data.sessionState = state;
    data.events = std::move(events);
    writeText(sessionFile(id), data.encode());
    return id;
}

// Restores the stored sessions once, sends them and waits for every send to finish.
inline void sendRestored(ZMTrackingSessionsRestoreManager& manager) {
    manager.restoreSessionsIfNotRestored();
    manager.sendAllRestoredSessions();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return manager.pendingSendsCount() == 0; }));
}

}  // namespace zarvo::test
