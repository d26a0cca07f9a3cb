// Costs of the user-defaults store: the downloads list is rewritten as one large JSON string
// several times a second, so a 1 MB write must stay well under 5 ms.
#include <string>

#include <benchmark/benchmark.h>

#include "zarvo/platform/UserDefaults.h"

#include "support/TempHome.h"

namespace {

void BM_SetLargeString(benchmark::State& state) {
    zarvo::test::TempHome home;
    auto defaults = zarvo::UserDefaults::standard();
    const auto size = static_cast<std::size_t>(state.range(0));
    std::string value(size, 'a');
    std::size_t round = 0;
    for (auto _ : state) {
        value[round++ % size] ^= 1;  // a different value each time, as the real list is
        if (!defaults->setString("DownloadsJson", value)) {
            state.SkipWithError("write failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(BM_SetLargeString)->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

void BM_GetLargeString(benchmark::State& state) {
    zarvo::test::TempHome home;
    auto defaults = zarvo::UserDefaults::standard();
    const auto size = static_cast<std::size_t>(state.range(0));
    defaults->setString("DownloadsJson", std::string(size, 'a'));
    for (auto _ : state) {
        auto value = defaults->string("DownloadsJson");
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(BM_GetLargeString)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

void BM_SetSmallInteger(benchmark::State& state) {
    zarvo::test::TempHome home;
    auto defaults = zarvo::UserDefaults::standard();
    long long counter = 0;
    for (auto _ : state) {
        defaults->setInteger("counter", ++counter);
    }
}
BENCHMARK(BM_SetSmallInteger)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
