// Parsing a 100,000-segment media playlist from a string and from a file: throughput, and the
// peak heap the parsed model takes relative to the size of its text.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <new>
#include <string>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "zarvo/hls/ManifestBuilder.h"

namespace {

// Heap accounting is on only while the memory benchmark runs, so that it does not slow the
// throughput benchmark down.
std::atomic<bool> counting{false};
std::atomic<long long> liveBytes{0};
std::atomic<long long> peakBytes{0};

void noteAllocation(void* pointer) {
    if (!pointer) {
        throw std::bad_alloc();
    }
    if (!counting.load(std::memory_order_relaxed)) {
        return;
    }
    long long now = liveBytes += static_cast<long long>(malloc_usable_size(pointer));
    long long peak = peakBytes.load(std::memory_order_relaxed);
    while (now > peak && !peakBytes.compare_exchange_weak(peak, now)) {
    }
}

std::string generatedPlaylist(int segments) {
    std::string text =
        "#EXTM3U\n#EXT-X-VERSION:4\n#EXT-X-TARGETDURATION:7\n#EXT-X-MEDIA-SEQUENCE:1\n";
    char line[256];
    for (int i = 0; i < segments; ++i) {
        if (i > 0 && i % 1000 == 0) {
            text += "#EXT-X-DISCONTINUITY\n";
        }
        std::snprintf(line, sizeof line, "#EXTINF:6.006,Part %d\n", i);
        text += line;
        if (i % 3 == 0) {
            std::snprintf(line, sizeof line, "#EXT-X-BYTERANGE:%d@%lld\n", 1048576 + i,
                          1048576LL * i);
            text += line;
        }
        std::snprintf(line, sizeof line,
                      "https://cdn.zarvo.example/vod/4f2a9c/1080p/seg_%06d.ts?token=a1b2c3d4e5f6\n",
                      i);
        text += line;
    }
    return text + "#EXT-X-ENDLIST\n";
}

const std::string& playlistText() {
    static const std::string text = generatedPlaylist(100000);
    return text;
}

void BM_ParseMediaPlaylistFromString(benchmark::State& state) {
    const std::string& text = playlistText();
    zarvo::ManifestBuilder builder;
    for (auto _ : state) {
        auto playlist = builder.parseMediaPlaylistFromString(text, nullptr);
        benchmark::DoNotOptimize(playlist->getSegmentCount());
        state.PauseTiming();
        playlist.reset();  // freeing the model is not part of parsing
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
    state.counters["text_MB"] = static_cast<double>(text.size()) / 1e6;
}
BENCHMARK(BM_ParseMediaPlaylistFromString)->Unit(benchmark::kMillisecond);

// The same playlist read from a file, as "zmplay playlist" reads it.
void BM_ParseMediaPlaylistFromFile(benchmark::State& state) {
    const std::string& text = playlistText();
    const auto path = std::filesystem::temp_directory_path() /
                      ("hls_parse_bench." + std::to_string(::getpid()) + ".m3u8");
    std::ofstream(path, std::ios::binary) << text;
    zarvo::ManifestBuilder builder;
    for (auto _ : state) {
        auto playlist = builder.parseMediaPlaylistFromFile(path.string(), nullptr);
        benchmark::DoNotOptimize(playlist->getSegmentCount());
        state.PauseTiming();
        playlist.reset();
        state.ResumeTiming();
    }
    std::filesystem::remove(path);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ParseMediaPlaylistFromFile)->Unit(benchmark::kMillisecond);

// Peak heap during the parse (the model and anything the parser holds meanwhile) per byte of
// playlist text.
void BM_ParsedModelPeakMemory(benchmark::State& state) {
    const std::string& text = playlistText();
    zarvo::ManifestBuilder builder;
    double peakRatio = 0;
    for (auto _ : state) {
        counting = true;
        long long before = liveBytes.load();
        peakBytes = before;
        auto playlist = builder.parseMediaPlaylistFromString(text, nullptr);
        peakRatio =
            static_cast<double>(peakBytes.load() - before) / static_cast<double>(text.size());
        counting = false;
        benchmark::DoNotOptimize(playlist->getSegmentCount());
    }
    state.counters["peak_model_per_text_byte"] = peakRatio;
}
BENCHMARK(BM_ParsedModelPeakMemory)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

void* operator new(std::size_t size) {
    void* pointer = std::malloc(size);
    noteAllocation(pointer);
    return pointer;
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto align = static_cast<std::size_t>(alignment);
    void* pointer = std::aligned_alloc(align, (size + align - 1) / align * align);
    noteAllocation(pointer);
    return pointer;
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return operator new(size, alignment);
}
void* operator new[](std::size_t size) {
    void* pointer = std::malloc(size);
    noteAllocation(pointer);
    return pointer;
}
void operator delete(void* pointer) noexcept {
    if (pointer) {
        if (counting.load(std::memory_order_relaxed)) {
            liveBytes -= static_cast<long long>(malloc_usable_size(pointer));
        }
        std::free(pointer);
    }
}
void operator delete[](void* pointer) noexcept {
    operator delete(pointer);
}
void operator delete(void* pointer, std::size_t) noexcept {
    operator delete(pointer);
}
void operator delete[](void* pointer, std::size_t) noexcept {
    operator delete(pointer);
}

void operator delete(void* pointer, std::align_val_t) noexcept {
    operator delete(pointer);
}
void operator delete[](void* pointer, std::align_val_t) noexcept {
    operator delete(pointer);
}
void operator delete(void* pointer, std::size_t, std::align_val_t) noexcept {
    operator delete(pointer);
}
void operator delete[](void* pointer, std::size_t, std::align_val_t) noexcept {
    operator delete(pointer);
}

BENCHMARK_MAIN();
