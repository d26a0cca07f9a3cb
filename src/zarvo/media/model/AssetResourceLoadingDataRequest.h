#pragma once

#include <cstdint>
#include <mutex>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The bytes a loading request asks for; the delegate answers with respond(with:), in one or
// more pieces.
class ZARVO_EXPORT AssetResourceLoadingDataRequest {
public:
    AssetResourceLoadingDataRequest(std::int64_t requestedOffset = 0,
                                    std::int64_t requestedLength = -1)
        : requestedOffset_(requestedOffset), requestedLength_(requestedLength) {}

    std::int64_t requestedOffset() const { return requestedOffset_; }
    // -1: to the end of the resource.
    std::int64_t requestedLength() const { return requestedLength_; }

    void respond(const Data& data);
    // Everything responded so far.
    Data respondedData() const;

private:
    const std::int64_t requestedOffset_;
    const std::int64_t requestedLength_;
    mutable std::mutex mutex_;
    Data data_;
};

}  // namespace zarvo
