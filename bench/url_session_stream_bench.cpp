// Throughput of a UrlSession stream task against a loopback server: one 100 MB body read piece
// by piece, compared with the same body fetched by a curl easy handle that throws the bytes away.
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "zarvo/platform/UrlSession.h"

#include "LoopbackBodyServer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t bodyLength = 100 << 20;

LoopbackBodyServer& server() {
    static LoopbackBodyServer instance("/body", bodyLength);
    return instance;
}

// Reads the body through a stream task; the bytes that came, or 0 on a failure.
std::size_t streamOnce(zarvo::UrlSession& session, const zarvo::Url& url, std::size_t limit) {
    auto task = session.streamTask(zarvo::UrlRequest(url), limit);
    task->resume();
    auto head = task->waitForResponse();
    if (!std::holds_alternative<zarvo::HttpUrlResponse>(head) ||
        std::get<zarvo::HttpUrlResponse>(head).statusCode != 200) {
        return 0;
    }
    std::size_t received = 0;
    while (true) {
        auto piece = task->read();
        auto* data = std::get_if<zarvo::Data>(&piece);
        if (data == nullptr) {
            return 0;
        }
        if (data->empty()) {
            return received;
        }
        received += data->size();
        benchmark::DoNotOptimize(data->data());
    }
}

size_t countBytes(char*, size_t size, size_t count, void* received) {
    *static_cast<std::size_t*>(received) += size * count;
    return size * count;
}

struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

// Fetches the body with a fresh easy handle as `curl -o /dev/null` does (the curl tool's
// receive buffer of 100 KiB), dropping the bytes; the bytes that came, or 0 on a failure.
std::size_t easyOnce(const std::string& url) {
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    std::size_t received = 0;
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_BUFFERSIZE, 100L * 1024);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, &countBytes);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &received);
    return curl_easy_perform(easy.get()) == CURLE_OK ? received : 0;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Both clients in turn, alternating which goes first; reports both rates in bytes per second
// and the stream task's share of the easy handle's rate. The argument is the stream's limit.
void BM_StreamedBody_SessionVersusEasy(benchmark::State& state) {
    auto session = zarvo::UrlSession::make(zarvo::UrlSessionConfiguration::defaultConfiguration());
    auto limit = static_cast<std::size_t>(state.range(0));
    std::string text = server().url();
    auto url = *zarvo::Url::parse(text);
    double sessionSeconds = 0;
    double easySeconds = 0;
    bool sessionFirst = true;
    for (auto _ : state) {
        for (int turn = 0; turn < 2; ++turn) {
            auto start = Clock::now();
            if (sessionFirst == (turn == 0)) {
                if (streamOnce(*session, url, limit) != bodyLength) {
                    state.SkipWithError("the stream task failed");
                    return;
                }
                sessionSeconds += secondsSince(start);
            } else {
                if (easyOnce(text) != bodyLength) {
                    state.SkipWithError("the easy handle failed");
                    return;
                }
                easySeconds += secondsSince(start);
            }
        }
        sessionFirst = !sessionFirst;
    }
    double bytes = static_cast<double>(state.iterations()) * bodyLength;
    state.counters["session_bytes_per_s"] = bytes / sessionSeconds;
    state.counters["easy_bytes_per_s"] = bytes / easySeconds;
    state.counters["session_share"] = easySeconds / sessionSeconds;
}
BENCHMARK(BM_StreamedBody_SessionVersusEasy)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Arg(4 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
