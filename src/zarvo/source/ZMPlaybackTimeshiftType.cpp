#include "zarvo/source/ZMPlaybackTimeshiftType.h"

namespace zarvo {

std::optional<ZMPlaybackTimeshiftType> makeZMPlaybackTimeshiftType(int rawValue) {
    switch (rawValue) {
        case static_cast<int>(ZMPlaybackTimeshiftType::startTime):
            return ZMPlaybackTimeshiftType::startTime;
        case static_cast<int>(ZMPlaybackTimeshiftType::dvrWindow):
            return ZMPlaybackTimeshiftType::dvrWindow;
        default:
            return std::nullopt;
    }
}

}  // namespace zarvo
