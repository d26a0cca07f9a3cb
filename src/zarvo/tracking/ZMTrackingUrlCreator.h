#pragma once

#include <string>
#include <variant>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlQueryItem.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionUrlPath.h"

namespace zarvo {

// Builds a beacon's address: the endpoint, the beacon's file name and the payload as query.
struct ZARVO_EXPORT ZMTrackingUrlCreator {
    std::string endpointUrl;
    ZMTrackingSessionUrlPath path = ZMTrackingSessionUrlPath::initialize;
    std::vector<UrlQueryItem> queryItems;

    // The request URL, or why it cannot be made.
    std::variant<Url, ZMTrackingSessionError> url() const;

    // The printed form of a query item list: "[name=value, name]".
    static std::string describe(const std::vector<UrlQueryItem>& items);
};

}  // namespace zarvo
