#include "zarvo/tracking/ZMTrackingUrlCreator.h"

#include "zarvo/platform/UrlComponents.h"

namespace zarvo {

std::variant<Url, ZMTrackingSessionError> ZMTrackingUrlCreator::url() const {
    auto endpoint = endpointUrl.empty() ? std::nullopt : Url::parse(endpointUrl);
    if (!endpoint) {
        return ZMTrackingSessionError::wrongEndpointUrl(endpointUrl);
    }
    Url withPath = endpoint->appendingPathComponent(pathComponent(path));
    auto components = UrlComponents::parse(withPath.absoluteString());
    if (!components) {
        return ZMTrackingSessionError::wrongEndpointUrl(withPath.absoluteString());
    }
    components->setQueryItems(queryItems);
    auto result = components->url();
    if (!result) {
        return ZMTrackingSessionError::unableToCreateUrlWithQuery(describe(queryItems));
    }
    return *result;
}

std::string ZMTrackingUrlCreator::describe(const std::vector<UrlQueryItem>& items) {
    std::string text = "[";
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0) {
            text += ", ";
        }
        text += items[index].name;
        if (items[index].value) {
            text += "=" + *items[index].value;
        }
    }
    return text + "]";
}

}  // namespace zarvo
