#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "zarvo/platform/Json.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo::origin {

// The tracking beacons the origin has received, oldest first. Thread-safe.
class BeaconLog {
public:
    struct Beacon {
        std::string path;                 // "/track/a/init.gif"
        std::string rawQuery;             // as sent, without "?"
        std::vector<UrlQueryItem> query;  // decoded, in order
    };

    void record(std::string path, std::string rawQuery);
    std::vector<Beacon> beacons() const;
    void clear();

    // [{"path":..,"query":[{"name":..,"value":..}],"rawQuery":..}] as served by /track/received.
    // An item without "=" has a null value.
    Json json() const;

    // Decodes a raw query into items (percent escapes decoded, "+" kept as it is).
    static std::vector<UrlQueryItem> decodeQuery(const std::string& rawQuery);

private:
    mutable std::mutex mutex_;
    std::vector<Beacon> beacons_;
};

}  // namespace zarvo::origin
