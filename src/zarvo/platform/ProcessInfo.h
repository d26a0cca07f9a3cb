#pragma once

namespace zarvo {

struct ProcessInfo {
    // Seconds since boot, monotonic (CLOCK_BOOTTIME).
    static double systemUptime();
};

}  // namespace zarvo
