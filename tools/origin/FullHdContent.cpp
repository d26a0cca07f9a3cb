#include "origin/FullHdContent.h"

#include "origin/ContentCache.h"
#include "origin/FfmpegArgs.h"
#include "origin/ToolRun.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

constexpr int seconds = 20;
constexpr int fullHdFrameRate = 50;
constexpr const char* size = "1920x1080";
constexpr const char* bitrate = "6000k";

using Args = FfmpegArgs::List;

// High profile with CABAC and B-frames, as services encode 1080p, at an average rate capped
// at 6 Mbit/s that x264 fills even for a test pattern (about 7 Mbit/s with the audio and the
// transport stream), with a key frame every 2 seconds so that every segment starts with one.
Args video() {
    const std::string gop = std::to_string(fullHdFrameRate * 2);
    return {"-map",       "0:v",   "-c:v",        "libx264", "-preset",       "veryfast",
            "-profile:v", "high",  "-level",      "4.2",     "-pix_fmt",      "yuv420p",
            "-b:v",       bitrate, "-maxrate",    bitrate,   "-bufsize",      "12000k",
            "-g",         gop,     "-keyint_min", gop,       "-sc_threshold", "0"};
}

std::optional<Error> generate(const fs::path& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) {
        return contentError("Cannot create " + directory.string() + ": " + error.message());
    }
    const Args hls = FfmpegArgs::hlsVod() +
                     Args{"-master_pl_name", "master.m3u8", "-hls_segment_filename",
                          (directory / "seg%d.ts").string(), (directory / "index.m3u8").string()};
    if (auto failed = runTool(FfmpegArgs::command() +
                                  FfmpegArgs::sources(seconds, false, size, fullHdFrameRate) +
                                  video() + Args{"-map", "1:a"} + FfmpegArgs::aac() + hls,
                              directory / "ffmpeg.log")) {
        return failed;
    }
    if (!writeTextFile(directory / "recipe.txt", FullHdContent::recipe() + "\n")) {
        return contentError("Cannot write the content description.");
    }
    return std::nullopt;
}

}  // namespace

std::string FullHdContent::recipe() {
    std::string text = "zm-origin full hd 1; " + std::to_string(seconds) + "s " + size + "@" +
                       std::to_string(fullHdFrameRate) + "fps; ";
    for (const auto& arg : video() + FfmpegArgs::aac()) {
        text += arg + " ";
    }
    return text + "tone 440; segments 2s muxed";
}

double FullHdContent::duration() {
    return seconds;
}

std::variant<FullHdContent, Error> FullHdContent::prepare(fs::path cacheRoot) {
    return ContentCache::prepareContent<FullHdContent>(cacheRoot, "fullhd-", recipe(), generate);
}

}  // namespace zarvo::origin
