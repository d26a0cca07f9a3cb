// The download service against its peers on the sample VOD (the highest variant, both audio
// renditions, the subtitles): wall time against `ffmpeg -c copy` of the same renditions, and
// throughput against `curl --parallel` fetching the same files.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "zarvo/media/AssetDownloadUrlSession.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/RunLoop.h"

#include "origin/SampleOrigin.h"

namespace {

namespace fs = std::filesystem;

struct Done : zarvo::AssetDownloadDelegate {
    void didCompleteWithError(zarvo::AssetDownloadUrlSession&,
                              const std::shared_ptr<zarvo::AggregateAssetDownloadTask>&,
                              const std::optional<zarvo::Error>& error) override {
        ended = true;
        failed = error.has_value();
    }
    bool ended = false;
    bool failed = false;
};

std::uintmax_t bytesUnder(const fs::path& root) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) {
            bytes += entry.file_size();
        }
    }
    return bytes;
}

double secondsOf(const std::string& command) {
    const auto start = std::chrono::steady_clock::now();
    if (std::system(command.c_str()) != 0) {
        return 0;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_DownloadVodAgainstFfmpegAndCurl(benchmark::State& state) {
    zarvo::origin::SampleOrigin origin;
    if (origin.start()) {
        state.SkipWithError("the sample origin did not start");
        return;
    }
    const fs::path work =
        fs::temp_directory_path() / ("zm-download-bench-" + std::to_string(::getpid()));
    fs::create_directories(work);
    zarvo::AppDirectories::setHome(work / "home");
    const std::string master = origin.url("/vod/master.m3u8");

    // The files of the package, as curl fetches them: every playlist and segment the origin was
    // asked for by one download.
    auto delegate = std::make_shared<Done>();
    auto session =
        zarvo::AssetDownloadUrlSession::make(zarvo::UrlSessionConfiguration::background("Bench"),
                                             delegate, zarvo::DispatchQueue::main());
    auto asset = zarvo::UrlAsset::make(*zarvo::Url::parse(master));
    bool loaded = false;
    asset->loadMediaSelections(zarvo::DispatchQueue::main(), [&](auto) { loaded = true; });
    zarvo::RunLoop::main().runUntil([&] { return loaded; });
    const auto selections = asset->allMediaSelections();

    double sdk = 0, ffmpeg = 0, curl = 0;
    std::uintmax_t bytes = 0;
    for (auto _ : state) {
        origin.clearRequests();
        delegate->ended = false;
        auto task =
            session->makeAggregateAssetDownloadTask(asset, selections, "Bench", std::nullopt, {});
        const auto start = std::chrono::steady_clock::now();
        task->resume();
        zarvo::RunLoop::main().runUntil([&] { return delegate->ended; }, std::chrono::seconds(60));
        sdk += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (delegate->failed) {
            state.SkipWithError("the download failed");
            return;
        }
        bytes = bytesUnder(task->location().decodedPath());
        fs::remove_all(task->location().decodedPath());

        std::ofstream config(work / "curl.txt");
        for (const auto& request : origin.requests()) {
            config << "url = \"http://127.0.0.1:" << origin.port() << request.substr(4) << "\"\n"
                   << "output = \"/dev/null\"\n";
        }
        config.close();
        curl += secondsOf("curl -s --parallel --parallel-max 4 -K " + (work / "curl.txt").string());
        ffmpeg += secondsOf("ffmpeg -y -v error -i " + master +
                            " -map 0:4 -map 0:0 -map 0:1 -c copy -f mpegts " +
                            (work / "ffmpeg.ts").string());
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["s_sdk"] = sdk / n;
    state.counters["s_ffmpeg"] = ffmpeg / n;
    state.counters["s_curl_parallel"] = curl / n;
    state.counters["wall_vs_ffmpeg"] = ffmpeg > 0 ? sdk / ffmpeg : 0;
    state.counters["throughput_vs_curl"] = sdk > 0 ? curl / sdk : 0;
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
    fs::remove_all(work);
}
BENCHMARK(BM_DownloadVodAgainstFfmpegAndCurl)->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
