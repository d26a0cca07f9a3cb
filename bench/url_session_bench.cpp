// Throughput of UrlSession against a loopback server: sequential small GETs compared with a
// plain loop over one reused curl easy handle, and many GETs in flight at once.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlSession.h"

#include "support/TestHttpServer.h"

namespace {

using zarvo::test::TestHttpServer;
using Clock = std::chrono::steady_clock;

constexpr int sequentialCount = 2000;
constexpr int concurrentCount = 200;

TestHttpServer& server() {
    static TestHttpServer instance;
    static std::once_flag routes;
    std::call_once(routes, [] {
        // Binary types go uncompressed, so both clients receive the same bytes.
        auto small = TestHttpServer::Response::text(std::string(256, 'x'));
        small.contentType = "application/octet-stream";
        instance.on("/small", small);
        auto segment = TestHttpServer::Response::text(std::string(16 * 1024, 's'));
        segment.contentType = "video/mp2t";
        instance.on("/segment.ts", segment);
    });
    return instance;
}

// Counts completions and lets the caller wait for a number of them.
class Completions {
public:
    void add(bool onDelegateQueue) {
        std::lock_guard lock(mutex_);
        ++count_;
        onDelegateQueue_ += onDelegateQueue ? 1 : 0;
        changed_.notify_all();
    }
    void waitFor(int count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return count_ >= count; });
    }
    int onDelegateQueue() const {
        std::lock_guard lock(mutex_);
        return onDelegateQueue_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
    int onDelegateQueue_ = 0;
};

// Runs `count` GETs one after another on `session`; false if any failed.
bool sessionLoop(zarvo::UrlSession& session, const zarvo::Url& url, int count) {
    bool ok = true;
    for (int i = 0; i < count; ++i) {
        Completions done;
        session
            .dataTask(url,
                      [&](auto data, auto response, auto error) {
                          ok = ok && !error && response && response->statusCode == 200 &&
                               data->size() == 256;
                          done.add(true);
                      })
            ->resume();
        done.waitFor(1);
    }
    return ok;
}

// Runs `count` GETs one after another, each started from the completion of the one before
// (on the delegate queue, as SDK code chains requests); false if any failed.
bool chainedSessionLoop(zarvo::UrlSession& session, const zarvo::Url& url, int count) {
    Completions done;
    std::atomic<bool> ok{true};
    std::function<void(int)> fetch = [&](int remaining) {
        session
            .dataTask(
                url,
                [&, remaining](auto data, auto response, auto error) {
                    if (error || !response || response->statusCode != 200 || data->size() != 256) {
                        ok = false;
                    }
                    if (remaining > 1) {
                        fetch(remaining - 1);
                    } else {
                        done.add(true);
                    }
                })
            ->resume();
    };
    fetch(count);
    done.waitFor(1);
    return ok.load();
}

// Runs `count` GETs one after another from the main thread, as a host application does: the
// session delivers on the main queue and the caller runs the main run loop until each answer.
bool mainQueueSessionLoop(zarvo::UrlSession& session, const zarvo::Url& url, int count) {
    bool ok = true;
    for (int i = 0; i < count; ++i) {
        bool done = false;
        session
            .dataTask(url,
                      [&](auto data, auto response, auto error) {
                          ok = ok && !error && response && response->statusCode == 200 &&
                               data->size() == 256;
                          done = true;
                      })
            ->resume();
        ok = zarvo::RunLoop::main().runUntil([&] { return done; }) && ok;
    }
    return ok;
}

size_t appendBody(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

// The same GETs through one reused easy handle, answers collected the same way.
bool easyLoop(CURL* easy, int count) {
    bool ok = true;
    std::string body;
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &appendBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
    for (int i = 0; i < count; ++i) {
        body.clear();
        long status = 0;
        ok = ok && curl_easy_perform(easy) == CURLE_OK;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        ok = ok && status == 200 && body.size() == 256;
    }
    return ok;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Runs both loops in turn, alternating which goes first, and reports both rates and the
// session's share of the easy loop's rate.
template <typename SessionLoop>
void compareWithEasyLoop(benchmark::State& state, SessionLoop sessionLoop,
                         std::shared_ptr<zarvo::DispatchQueue> delegateQueue = nullptr) {
    auto session = zarvo::UrlSession::make(zarvo::UrlSessionConfiguration::defaultConfiguration(),
                                           std::move(delegateQueue));
    auto url = *zarvo::Url::parse(server().url("/small"));
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.absoluteString().c_str());
    double sessionSeconds = 0;
    double easySeconds = 0;
    bool sessionFirst = true;
    for (auto _ : state) {
        for (int turn = 0; turn < 2; ++turn) {
            auto start = Clock::now();
            if (sessionFirst == (turn == 0)) {
                if (!sessionLoop(*session, url, sequentialCount)) {
                    state.SkipWithError("a session request failed");
                    return;
                }
                sessionSeconds += secondsSince(start);
            } else {
                if (!easyLoop(easy.get(), sequentialCount)) {
                    state.SkipWithError("an easy-handle request failed");
                    return;
                }
                easySeconds += secondsSince(start);
            }
        }
        sessionFirst = !sessionFirst;
    }
    double requests = static_cast<double>(state.iterations()) * sequentialCount;
    state.counters["session_per_s"] = requests / sessionSeconds;
    state.counters["easy_per_s"] = requests / easySeconds;
    state.counters["session_share"] = easySeconds / sessionSeconds;
}

// Each GET waited for by the calling thread.
void BM_SequentialGets_SessionVersusEasyLoop(benchmark::State& state) {
    compareWithEasyLoop(state, sessionLoop);
}
BENCHMARK(BM_SequentialGets_SessionVersusEasyLoop)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(4);

// Each GET started from the previous one's completion.
void BM_SequentialGets_ChainedSessionVersusEasyLoop(benchmark::State& state) {
    compareWithEasyLoop(state, chainedSessionLoop);
}
BENCHMARK(BM_SequentialGets_ChainedSessionVersusEasyLoop)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(4);

// Each GET started from the main thread, its answer delivered on the main queue.
void BM_SequentialGets_MainQueueSessionVersusEasyLoop(benchmark::State& state) {
    compareWithEasyLoop(state, mainQueueSessionLoop, zarvo::DispatchQueue::main());
}
BENCHMARK(BM_SequentialGets_MainQueueSessionVersusEasyLoop)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(4);

// 200 segment GETs started together; every completion must arrive on the delegate queue.
void BM_ConcurrentGets(benchmark::State& state) {
    auto queue = zarvo::DispatchQueue::serial("bench.delegate");
    auto session =
        zarvo::UrlSession::make(zarvo::UrlSessionConfiguration::defaultConfiguration(), queue);
    auto url = *zarvo::Url::parse(server().url("/segment.ts"));
    int onDelegateQueue = 0;
    std::atomic<int> failures{0};
    for (auto _ : state) {
        Completions done;
        std::vector<std::shared_ptr<zarvo::UrlSessionDataTask>> tasks;
        tasks.reserve(concurrentCount);
        for (int i = 0; i < concurrentCount; ++i) {
            tasks.push_back(session->dataTask(url, [&](auto, auto response, auto error) {
                if (error || !response || response->statusCode != 200) {
                    failures.fetch_add(1);
                }
                done.add(queue->isCurrent());
            }));
        }
        for (auto& task : tasks) {
            task->resume();
        }
        done.waitFor(concurrentCount);
        onDelegateQueue += done.onDelegateQueue();
    }
    if (failures.load() != 0) {
        state.SkipWithError("a concurrent request failed");
        return;
    }
    state.SetItemsProcessed(state.iterations() * concurrentCount);
    state.counters["on_delegate_queue"] =
        static_cast<double>(onDelegateQueue) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ConcurrentGets)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
