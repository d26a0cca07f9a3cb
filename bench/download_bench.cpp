// The download service against its peers on the sample VOD (the highest variant, both audio
// renditions, the subtitles): wall time against `ffmpeg -c copy` of the same renditions, and
// throughput against `curl --parallel` fetching the same files.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "zarvo/media/download/AssetDownloadUrlSession.h"
#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/ZMOfflineManager.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/RunLoop.h"

#include "origin/SampleOrigin.h"
#include "origin/StreamCorpus.h"
#include "support/StaticFileServer.h"

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

// The service alone in a fresh process: loads the asset and downloads every rendition into
// `home`, as `zmplay download` does; what both pay to start a process cancels out.
int downloadOnceInThisProcess(const std::string& master, const fs::path& home) {
    zarvo::AppDirectories::setHome(home);
    auto delegate = std::make_shared<Done>();
    auto session = zarvo::AssetDownloadUrlSession::make(
        zarvo::UrlSessionConfiguration::background("Once"), delegate, zarvo::DispatchQueue::main());
    auto asset = zarvo::UrlAsset::make(*zarvo::Url::parse(master));
    bool loaded = false;
    asset->loadMediaSelections(zarvo::DispatchQueue::main(), [&](auto) { loaded = true; });
    zarvo::RunLoop::main().runUntil([&] { return loaded; });
    auto task = session->makeAggregateAssetDownloadTask(asset, asset->allMediaSelections(), "Once",
                                                        std::nullopt, {});
    task->resume();
    zarvo::RunLoop::main().runUntil([&] { return delegate->ended; }, std::chrono::seconds(60));
    return delegate->ended && !delegate->failed ? 0 : 1;
}

// Milliseconds from the end of one queued download to its successor's first progress, and
// `zmplay download` of the sample VOD as a whole process against the service's own time, in
// this process and alone in a fresh one.
struct QueueEvents : zarvo::ZMOfflineManagerDelegate {
    using Download = std::shared_ptr<zarvo::ZMOfflineDownload>;
    void offlineManagerDidUpdate(zarvo::ZMOfflineManagerProtocol&, const Download& d) override {
        if (finishedAt && !nextStartedAt && d->id() != finishedId) {
            nextStartedAt = std::chrono::steady_clock::now();
        }
    }
    void offlineManagerDidErrorOccur(zarvo::ZMOfflineManagerProtocol&, const Download&,
                                     const zarvo::Error&) override {
        failed = true;
    }
    void offlineManagerDidFind(zarvo::ZMOfflineManagerProtocol&,
                               const zarvo::ZMOfflineDownload::List&) override {}
    void offlineManagerDidCancel(zarvo::ZMOfflineManagerProtocol&, const Download&) override {}
    void offlineManagerDidRestart(zarvo::ZMOfflineManagerProtocol&, const Download&) override {}
    void offlineManagerDidPause(zarvo::ZMOfflineManagerProtocol&, const Download&) override {}
    void offlineManagerDidFinish(zarvo::ZMOfflineManagerProtocol&, const Download& d) override {
        ++finished;
        if (!finishedAt) {
            finishedAt = std::chrono::steady_clock::now();
            finishedId = d->id();
        }
    }
    std::optional<std::chrono::steady_clock::time_point> finishedAt, nextStartedAt;
    std::string finishedId;
    int finished = 0;
    bool failed = false;
};

void BM_QueuedStartAndZmplayDownload(benchmark::State& state) {
    zarvo::origin::SampleOrigin origin;
    if (origin.start()) {
        state.SkipWithError("the sample origin did not start");
        return;
    }
    const fs::path work =
        fs::temp_directory_path() / ("zm-queue-bench-" + std::to_string(::getpid()));
    const std::string master = origin.url("/vod/master.m3u8");
    const fs::path zmplay =
        fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin" / "zmplay";
    const fs::path self = fs::read_symlink("/proc/self/exe");
    double gap = 0, service = 0, serviceProcess = 0, tool = 0;
    int round = 0;
    for (auto _ : state) {
        const fs::path home = work / std::to_string(round++);
        fs::create_directories(home);
        zarvo::AppDirectories::setHome(home);
        auto events = std::make_shared<QueueEvents>();
        auto manager = zarvo::ZMOfflineManager::make(std::make_shared<zarvo::FPDownloadsStore>());
        manager->setDelegate(events);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 2; ++i) {
            std::atomic<bool> queued{false};
            manager->startDownload("Queued", *zarvo::Url::parse(master), std::nullopt, std::nullopt,
                                   std::nullopt, std::nullopt, std::nullopt, {},
                                   [&](auto, auto) { queued = true; });
            zarvo::RunLoop::main().runUntil([&] { return queued.load(); });
        }
        zarvo::RunLoop::main().runUntil([&] { return events->finished == 2 || events->failed; },
                                        std::chrono::seconds(60));
        if (events->failed || !events->nextStartedAt) {
            state.SkipWithError("a queued download failed");
            return;
        }
        gap += std::chrono::duration<double>(*events->nextStartedAt - *events->finishedAt).count();
        service += std::chrono::duration<double>(*events->finishedAt - start).count();
        tool += secondsOf("ZM_HOME=" + (home / "tool").string() + " " + zmplay.string() +
                          " download " + master + " >/dev/null 2>&1");
        serviceProcess += secondsOf(self.string() + " --download-once " + master + " " +
                                    (home / "service").string());
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["ms_queued_start"] = gap / n * 1000;
    state.counters["s_service"] = service / n;
    state.counters["s_zmplay_download"] = tool / n;
    state.counters["zmplay_vs_service"] = service > 0 ? tool / service : 0;
    state.counters["s_service_process"] = serviceProcess / n;
    state.counters["zmplay_vs_service_process"] = serviceProcess > 0 ? tool / serviceProcess : 0;
    zarvo::AppDirectories::resetHome();
    fs::remove_all(work);
}
BENCHMARK(BM_QueuedStartAndZmplayDownload)->Iterations(5)->Unit(benchmark::kMillisecond);

// A task for a finished package of 100 segments checks every file against its record and
// writes the playlists again, fetching nothing: what a relaunch pays for each finished package.
void BM_ResumeCheckOfAFinishedPackage(benchmark::State& state) {
    auto corpus = zarvo::origin::StreamCorpus::prepare();
    if (!std::holds_alternative<zarvo::origin::StreamCorpus>(corpus)) {
        state.SkipWithError("the stream corpus could not be made");
        return;
    }
    const fs::path work =
        fs::temp_directory_path() / ("zm-resume-bench-" + std::to_string(::getpid()));
    fs::create_directories(work / "served");
    fs::copy_file(std::get<zarvo::origin::StreamCorpus>(corpus).directory() / "ts" / "seg0.ts",
                  work / "served" / "seg.ts");
    std::ofstream playlist(work / "served" / "index.m3u8");
    playlist << "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-PLAYLIST-TYPE:VOD\n";
    for (int i = 0; i < 100; ++i) {
        playlist << "#EXTINF:2.0,\nseg.ts?n=" << i << "\n";
    }
    playlist << "#EXT-X-ENDLIST\n";
    playlist.close();
    zarvo::test::StaticFileServer server(work / "served");
    zarvo::AppDirectories::setHome(work / "home");
    auto done = std::make_shared<Done>();
    auto session = zarvo::AssetDownloadUrlSession::make(
        zarvo::UrlSessionConfiguration::background("Resume"), done, zarvo::DispatchQueue::main());
    auto run = [&](const zarvo::Url& url) {
        done->ended = false;
        auto task = session->makeAggregateAssetDownloadTask(zarvo::UrlAsset::make(url), {},
                                                            "Resume", std::nullopt, {});
        task->resume();
        zarvo::RunLoop::main().runUntil([&] { return done->ended; }, std::chrono::seconds(60));
        return task;
    };
    auto first = run(*zarvo::Url::parse(server.url("/index.m3u8")));
    const auto package = first->location();
    const std::size_t requests = server.requestCount();
    for (auto _ : state) {
        run(package);
    }
    if (done->failed || server.requestCount() != requests) {
        state.SkipWithError("the finished package was not taken as it is");
    }
    zarvo::AppDirectories::resetHome();
    fs::remove_all(work);
}
BENCHMARK(BM_ResumeCheckOfAFinishedPackage)->Iterations(20)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--download-once") {
        return downloadOnceInThisProcess(argv[2], argv[3]);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
