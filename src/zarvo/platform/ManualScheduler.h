#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "zarvo/platform/Scheduler.h"

namespace zarvo {

// A scheduler whose time moves only when advance() is called. Work that falls due is
// posted to its queue in due order (ties in scheduling order); main-queue work runs when
// the main run loop next runs (RunLoop::main().runUntilIdle()).
class ManualScheduler : public Scheduler, public std::enable_shared_from_this<ManualScheduler> {
public:
    static std::shared_ptr<ManualScheduler> create(double startUptime = 1000.0,
                                                   Date startDate = Date(1'800'000'000.0));

    double uptime() const override;
    Date now() const override;
    std::shared_ptr<ScheduledWork> schedule(Duration delay, std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> work) override;

    // Moves time forward by `by`, posting every piece of work that falls due.
    void advance(Duration by);
    // Number of pieces of work scheduled and neither run nor cancelled.
    std::size_t pendingCount() const;
    // Delay from now to the earliest pending work, if any.
    std::optional<Duration> nextDueIn() const;

private:
    ManualScheduler(double startUptime, Date startDate);
    struct Entry;
    void moveClockTo(double uptime);  // with mutex_ held; the date moves along
    void remove(const Entry& entry);
    mutable std::mutex mutex_;
    double uptime_;
    Date date_;
    std::multimap<double, std::shared_ptr<Entry>> pending_;
};

}  // namespace zarvo
