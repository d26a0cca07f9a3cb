#include "origin/LivePackager.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <glib.h>

#include "origin/FfmpegArgs.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

LivePackager::LivePackager(fs::path folder, int seconds) : folder_(std::move(folder)) {
    std::error_code ignored;
    fs::create_directories(folder_, ignored);
    std::ofstream(folder_ / "master.m3u8")
        << "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=290400,RESOLUTION=320x180,"
           "CODECS=\"avc1.42c00d,mp4a.40.2\"\nindex.m3u8\n";
    std::vector<std::string> args =
        FfmpegArgs::command() + std::vector<std::string>{"-re"} + FfmpegArgs::sources(0) +
        std::vector<std::string>{"-t", std::to_string(seconds), "-map", "0:v", "-map", "1:a"} +
        FfmpegArgs::h264() + FfmpegArgs::aac() +
        std::vector<std::string>{"-f",
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

}  // namespace zarvo::origin
