#pragma once

namespace zarvo {

// The format version of a stored session file; "v1" is the only one.
enum class ZMTrackingSessionStorageDataVersion { v1 };

}  // namespace zarvo
