#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

// An estimated download size in bytes, with the full and with the basic audio allowance.
class ZARVO_EXPORT ZMOfflineSize {
public:
    ZMOfflineSize(double size, double sizeWithBasicAudio)
        : size(size), sizeWithBasicAudio(sizeWithBasicAudio) {}

    double size;
    double sizeWithBasicAudio;
};

}  // namespace zarvo
