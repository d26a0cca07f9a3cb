#include "origin/BeaconLog.h"

#include "zarvo/platform/UrlComponents.h"

namespace zarvo::origin {

void BeaconLog::record(std::string path, std::string rawQuery) {
    auto query = decodeQuery(rawQuery);
    std::lock_guard lock(mutex_);
    beacons_.push_back(Beacon{std::move(path), std::move(rawQuery), std::move(query)});
}

std::vector<BeaconLog::Beacon> BeaconLog::beacons() const {
    std::lock_guard lock(mutex_);
    return beacons_;
}

void BeaconLog::clear() {
    std::lock_guard lock(mutex_);
    beacons_.clear();
}

Json BeaconLog::json() const {
    Json list = Json::array();
    for (const auto& beacon : beacons()) {
        Json items = Json::array();
        for (const auto& item : beacon.query) {
            Json entry = Json::object();
            entry["name"] = item.name;
            entry["value"] = item.value ? Json(*item.value) : Json(nullptr);
            items.push_back(std::move(entry));
        }
        Json entry = Json::object();
        entry["path"] = beacon.path;
        entry["query"] = std::move(items);
        entry["rawQuery"] = beacon.rawQuery;
        list.push_back(std::move(entry));
    }
    return list;
}

std::vector<UrlQueryItem> BeaconLog::decodeQuery(const std::string& rawQuery) {
    std::vector<UrlQueryItem> items;
    if (rawQuery.empty()) {
        return items;
    }
    std::size_t start = 0;
    while (start <= rawQuery.size()) {
        std::size_t end = rawQuery.find('&', start);
        if (end == std::string::npos) {
            end = rawQuery.size();
        }
        const std::string part = rawQuery.substr(start, end - start);
        const std::size_t equals = part.find('=');
        if (equals == std::string::npos) {
            items.push_back(UrlQueryItem{UrlComponents::percentDecode(part), std::nullopt});
        } else {
            items.push_back(UrlQueryItem{UrlComponents::percentDecode(part.substr(0, equals)),
                                         UrlComponents::percentDecode(part.substr(equals + 1))});
        }
        start = end + 1;
    }
    return items;
}

}  // namespace zarvo::origin
