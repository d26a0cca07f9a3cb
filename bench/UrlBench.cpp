// Costs of URL work on the playlist path: every segment URI of a media playlist is parsed and
// resolved against the playlist URL, and every beacon URL is built from query items.
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlComponents.h"

namespace {

void BM_ParseAbsolute(benchmark::State& state) {
    const std::string text =
        "https://cdn.example.com:443/vod/asset-123/720p/segment_00042.ts?token=abc%2Fdef&exp=1";
    for (auto _ : state) {
        benchmark::DoNotOptimize(zarvo::Url::parse(text));
    }
}
BENCHMARK(BM_ParseAbsolute);

void BM_ResolveSegmentUris(benchmark::State& state) {
    const auto base = *zarvo::Url::parse("https://cdn.example.com/vod/asset-123/720p/index.m3u8");
    std::vector<std::string> uris;
    for (int i = 0; i < 1000; ++i) {
        uris.push_back("../720p/segment_" + std::to_string(i) + ".ts?n=" + std::to_string(i));
    }
    for (auto _ : state) {
        for (const auto& uri : uris) {
            benchmark::DoNotOptimize(zarvo::Url::parse(uri, base));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * uris.size()));
}
BENCHMARK(BM_ResolveSegmentUris)->Unit(benchmark::kMicrosecond);

void BM_BuildBeaconUrl(benchmark::State& state) {
    std::string events;
    for (int i = 0; i < 50; ++i) {
        events += (i ? ";" : "") + std::to_string(i) + ",play," + std::to_string(i * 10) + ",x y";
    }
    const auto endpoint = *zarvo::Url::parse("https://collector.example.com/zm");
    for (auto _ : state) {
        zarvo::UrlComponents components(endpoint.appendingPathComponent("events.gif"));
        components.setQueryItems(
            std::vector<zarvo::UrlQueryItem>{{"version", "1.0"},
                                             {"customerId", "7"},
                                             {"sessionId", "E621E1F8-C36C-495A"},
                                             {"sessionDuration", "120"},
                                             {"events", events}});
        benchmark::DoNotOptimize(components.url());
    }
}
BENCHMARK(BM_BuildBeaconUrl);

}  // namespace

BENCHMARK_MAIN();
