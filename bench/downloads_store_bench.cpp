// Saving the downloads list after a progress report, with 1,000 downloads in it.
#include <string>

#include <benchmark/benchmark.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/platform/Json.h"

#include "support/TempHome.h"

namespace {

using zarvo::FPDownloadsStore;
using zarvo::ZMOfflineDownload;

// A stored list of `count` downloads shaped like real ones: licence and certificate URLs, a
// package path, renditions and a header.
std::string storedList(int count) {
    zarvo::Json array = zarvo::Json::array();
    for (int i = 0; i < count; ++i) {
        std::string number = std::to_string(i);
        array.push_back(
            {{"id", "7F3C2A1B9D8E4F60A1B2C3D4E5F6" + std::to_string(1000 + i)},
             {"title", "Episode " + number + ": The Long Way Home"},
             {"playlist_url", "https://cdn.example.com/vod/" + number + "/master.m3u8"},
             {"state", i % 5},
             {"license_url", "https://drm.example.com/fairplay/license?asset=" + number},
             {"fps_cert_url", "https://drm.example.com/fairplay/cert.der"},
             {"offlineUrl", "Library/com.zarvo.downloads/episode-" + number + ".movpkg"},
             {"download_progress", (i % 100) / 100.0},
             {"audio_ids", {"en", "de"}},
             {"subtitles_ids", {"en", "fr", "es"}},
             {"min_bitrate", 1200000},
             {"headers", {{"Authorization", "Bearer 0123456789abcdef"}}}});
    }
    return array.dump();
}

void BM_UpdateWithThousandDownloads(benchmark::State& state) {
    zarvo::test::TempHome home;
    zarvo::UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey,
                                               storedList(1000));
    FPDownloadsStore store;
    ZMOfflineDownload::List downloads = store.getAllDownloads();
    if (downloads.size() != 1000) {
        state.SkipWithError("the seeded list did not load");
        return;
    }
    auto download = downloads[500];
    double progress = 0;
    for (auto _ : state) {
        progress = progress >= 1.0 ? 0.0 : progress + 0.001;
        download->setProgress(progress);
        store.update(download);
    }
    state.counters["bytes"] = static_cast<double>(
        zarvo::UserDefaults::standard()->string(FPDownloadsStore::DownloadsJsonKey)->size());
}
BENCHMARK(BM_UpdateWithThousandDownloads)->Unit(benchmark::kMillisecond);

// The worst case: every download changed since the last save, so each one is encoded again.
void BM_UpdateAfterEveryDownloadChanged(benchmark::State& state) {
    zarvo::test::TempHome home;
    zarvo::UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey,
                                               storedList(1000));
    FPDownloadsStore store;
    ZMOfflineDownload::List downloads = store.getAllDownloads();
    double progress = 0;
    for (auto _ : state) {
        state.PauseTiming();
        progress = progress >= 1.0 ? 0.0 : progress + 0.001;
        for (const auto& download : downloads) {
            download->setProgress(progress);
        }
        state.ResumeTiming();
        store.update(downloads.front());
    }
}
BENCHMARK(BM_UpdateAfterEveryDownloadChanged)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
