// addTrackingEvent with 1,000 events pending: every call rewrites the session file whole
// (temporary file + rename), so its cost grows with the pending events.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <benchmark/benchmark.h>

#include "zarvo/platform/Json.h"
#include "zarvo/tracking/ZMTrackingSession.h"

#include "support/TempHome.h"

namespace {

using namespace zarvo;

void BM_AddTrackingEventWith1000Pending(benchmark::State& state) {
    test::TempHome home;
    ZMTrackingSessionDeviceInfo device("x86_64", "1.0 (1)", "0f8e2a10-5b8c-4e6e-9b1c-1d2e3f405162",
                                       "Apple", "HLS", "Linux", "12", "LINUX", "0.1.0", "AVPLAYER",
                                       "PC", "V1");
    ZMTrackingSessionContentInfo content(1, 2, 3600, "http://127.0.0.1:9/track", 3, "VOD", "S-1",
                                         std::nullopt, "http://127.0.0.1:9/a.m3u8");
    // A minimum duration keeps the session from reporting, so every event stays pending.
    // A fresh session with 1,000 events replaces it every 100 events, so the file always
    // holds 1,000 to 1,100 of them.
    std::shared_ptr<ZMTrackingSession> session;
    auto freshSession = [&] {
        if (session) {
            session->finishAndCancel();
        }
        session = ZMTrackingSession::make(content, device, UrlSessionConfiguration(),
                                          ZMTrackingSessionConfiguration(3600.0));
        session->start();
        for (int i = 0; i < 1000; ++i) {
            session->addTrackingEvent(ZMTrackingEvent::playing(i), i);
        }
    };
    freshSession();
    std::int64_t added = 0;
    for (auto _ : state) {
        if (added > 0 && added % 100 == 0) {
            state.PauseTiming();
            freshSession();
            state.ResumeTiming();
        }
        session->addTrackingEvent(ZMTrackingEvent::audioTrackChanged("pl"), added++);
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["pending"] = static_cast<double>(session->pendingEventsCount());

    // The file on disk is one whole JSON document holding every event.
    auto path = home.path() / "Library/Caches/TrackingSessions" / session->localId().uuidString();
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto json = json::parse(text);
    if (!json || (*json)["events"].size() != session->pendingEventsCount()) {
        state.SkipWithError("the session file is not a complete document");
    }
    session->finishAndCancel();
}
BENCHMARK(BM_AddTrackingEventWith1000Pending)
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(2.0)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
