#include "zarvo/platform/ProcessInfo.h"

#include <time.h>

namespace zarvo {

double ProcessInfo::systemUptime() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace zarvo
