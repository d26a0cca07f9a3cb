#pragma once

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

// CPU seconds that the threads of this process named `name` have run so far, or nothing when
// no thread has that name. Exact: each thread's own CPU clock, the scheduler's count of the
// nanoseconds it ran, read by its thread id (the clock id the kernel gives a thread of the
// caller's own process, as pthread_getcpuclockid makes it from a thread handle). The utime and
// stime of /proc count whole clock ticks per thread, too coarse for threads that each run a
// little; /proc's schedstat is empty on kernels built without scheduler statistics. Threads
// that ended are no longer counted: measure threads that live as long as the process.
inline std::optional<double> namedThreadsCpuSeconds(const std::string& name) {
    std::optional<double> total;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::ifstream comm(entry.path() / "comm");
        std::string threadName;
        if (!std::getline(comm, threadName) || threadName != name) {
            continue;
        }
        const auto tid = static_cast<clockid_t>(std::atoi(entry.path().filename().c_str()));
        // The kernel's MAKE_THREAD_CPUCLOCK(tid, CPUCLOCK_SCHED).
        const clockid_t clock = (~tid << 3) | 6;
        timespec cpu{};
        if (::clock_gettime(clock, &cpu) == 0) {
            total = total.value_or(0) + static_cast<double>(cpu.tv_sec) +
                    static_cast<double>(cpu.tv_nsec) / 1e9;
        }
    }
    return total;
}
