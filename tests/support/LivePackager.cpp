#include "support/LivePackager.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <glib.h>

namespace zarvo::test {

namespace fs = std::filesystem;

LivePackager::LivePackager(fs::path folder, int seconds) : folder_(std::move(folder)) {
    std::error_code ignored;
    fs::create_directories(folder_, ignored);
    std::ofstream(folder_ / "master.m3u8")
        << "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=290400,RESOLUTION=320x180,"
           "CODECS=\"avc1.42c00d,mp4a.40.2\"\nindex.m3u8\n";
    const std::string duration = std::to_string(seconds);
    std::vector<std::string> args = {"ffmpeg",
                                     "-hide_banner",
                                     "-nostdin",
                                     "-loglevel",
                                     "error",
                                     "-re",
                                     "-f",
                                     "lavfi",
                                     "-i",
                                     "testsrc2=size=320x180:rate=24",
                                     "-f",
                                     "lavfi",
                                     "-i",
                                     "sine=frequency=440:sample_rate=48000",
                                     "-t",
                                     duration,
                                     "-map",
                                     "0:v",
                                     "-map",
                                     "1:a",
                                     "-c:v",
                                     "libx264",
                                     "-preset",
                                     "ultrafast",
                                     "-profile:v",
                                     "baseline",
                                     "-pix_fmt",
                                     "yuv420p",
                                     "-b:v",
                                     "200k",
                                     "-g",
                                     "48",
                                     "-keyint_min",
                                     "48",
                                     "-sc_threshold",
                                     "0",
                                     "-c:a",
                                     "aac",
                                     "-b:a",
                                     "64k",
                                     "-ac",
                                     "2",
                                     "-f",
                                     "hls",
                                     "-hls_time",
                                     "2",
                                     "-hls_list_size",
                                     "5",
                                     "-hls_flags",
                                     "delete_segments",
                                     "-hls_segment_filename",
                                     (folder_ / "seg%d.ts").string(),
                                     (folder_ / "index.m3u8").string()};
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    GPid pid = 0;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                                G_SPAWN_STDOUT_TO_DEV_NULL);
    if (g_spawn_async(nullptr, argv.data(), nullptr, flags, nullptr, nullptr, &pid, nullptr)) {
        pid_ = pid;
    }
}

LivePackager::~LivePackager() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

int LivePackager::segmentsListed() const {
    std::ifstream in(folder_ / "index.m3u8");
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        count += line.starts_with("#EXTINF") ? 1 : 0;
    }
    return count;
}

bool LivePackager::firstSegmentDeleted() const {
    std::error_code ignored;
    return segmentsListed() > 0 && !fs::exists(folder_ / "seg0.ts", ignored);
}

}  // namespace zarvo::test
