#include <chrono>

#include <benchmark/benchmark.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/Timer.h"

namespace {

using namespace zarvo;

// Items posted to a serial queue and drained by one sync.
void serialAsyncThroughput(benchmark::State& state) {
    auto queue = DispatchQueue::serial("bench");
    const auto items = state.range(0);
    long sum = 0;
    for (auto _ : state) {
        for (long i = 0; i < items; ++i) {
            queue->async([&sum, i] { sum += i; });
        }
        queue->sync([] {});
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * items);
}
BENCHMARK(serialAsyncThroughput)->Arg(1000);

// One sync round trip from the calling thread to a worker queue.
void serialSyncRoundTrip(benchmark::State& state) {
    auto queue = DispatchQueue::serial("bench");
    int value = 0;
    for (auto _ : state) {
        queue->sync([&] { ++value; });
    }
    benchmark::DoNotOptimize(value);
}
BENCHMARK(serialSyncRoundTrip);

// Main-queue items posted and run by the run loop on this (the main) thread.
void mainQueuePostAndRun(benchmark::State& state) {
    auto main = DispatchQueue::main();
    const auto items = state.range(0);
    long ran = 0;
    for (auto _ : state) {
        for (long i = 0; i < items; ++i) {
            main->async([&ran] { ++ran; });
        }
        RunLoop::main().runUntilIdle();
    }
    benchmark::DoNotOptimize(ran);
    state.SetItemsProcessed(state.iterations() * items);
}
BENCHMARK(mainQueuePostAndRun)->Arg(1000);

// Repeating timers on a manual clock: the cost of firing and rescheduling.
void manualTimerFires(benchmark::State& state) {
    auto scheduler = ManualScheduler::create();
    std::vector<std::shared_ptr<Timer>> timers;
    long fires = 0;
    for (long i = 0; i < state.range(0); ++i) {
        timers.push_back(Timer::scheduledTimer(
            1, true, [&fires](Timer&) { ++fires; }, scheduler));
    }
    for (auto _ : state) {
        scheduler->advance(std::chrono::seconds(1));
        RunLoop::main().runUntilIdle();
    }
    for (auto& timer : timers) {
        timer->invalidate();
    }
    state.SetItemsProcessed(fires);
}
BENCHMARK(manualTimerFires)->Arg(100);

}  // namespace

BENCHMARK_MAIN();
