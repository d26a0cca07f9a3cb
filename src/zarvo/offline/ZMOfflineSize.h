#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

/// An estimated download size in bytes, with the full and with the basic audio allowance.
class ZARVO_EXPORT ZMOfflineSize {
public:
    /// The two estimates.
    ZMOfflineSize(double size, double sizeWithBasicAudio)
        : size(size), sizeWithBasicAudio(sizeWithBasicAudio) {}

    /// Bytes with the full audio allowance (256 kbit/s).
    double size;
    /// Bytes with the basic audio allowance (128 kbit/s).
    double sizeWithBasicAudio;
};

}  // namespace zarvo
