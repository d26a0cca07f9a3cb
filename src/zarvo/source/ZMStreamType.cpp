#include "zarvo/source/ZMStreamType.h"

namespace zarvo {

std::optional<ZMStreamType> makeZMStreamType(int rawValue) {
    if (rawValue < static_cast<int>(ZMStreamType::vod) ||
        rawValue > static_cast<int>(ZMStreamType::unknown)) {
        return std::nullopt;
    }
    return static_cast<ZMStreamType>(rawValue);
}

}  // namespace zarvo
