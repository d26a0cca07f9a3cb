#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// What the delegate tells the engine about the resource it loads: its type and size.
class ZARVO_EXPORT AssetResourceLoadingContentInformationRequest {
public:
    // The content types of key responses: a raw content key, or a persistent key that the
    // engine unwraps before use.
    static constexpr const char* contentKeyType = "com.zarvo.streamingkeydelivery.contentkey";
    static constexpr const char* persistentContentKeyType =
        "com.zarvo.streamingkeydelivery.persistentcontentkey";

    std::optional<std::string> contentType() const;
    void setContentType(std::optional<std::string> type);
    std::int64_t contentLength() const;
    void setContentLength(std::int64_t length);

private:
    mutable std::mutex mutex_;
    std::optional<std::string> contentType_;
    std::int64_t contentLength_ = 0;
};

}  // namespace zarvo
