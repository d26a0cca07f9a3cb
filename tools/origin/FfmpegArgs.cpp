#include "origin/FfmpegArgs.h"

namespace zarvo::origin {

FfmpegArgs::List operator+(FfmpegArgs::List a, const FfmpegArgs::List& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

FfmpegArgs::List FfmpegArgs::command() {
    return {"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-y"};
}

FfmpegArgs::List FfmpegArgs::sources(int seconds, bool secondTone, const std::string& size,
                                     int frameRate, int sampleRate) {
    const std::string duration = seconds > 0 ? ":duration=" + std::to_string(seconds) : "";
    auto tone = [&](int frequency) {
        return List{"-f", "lavfi", "-i",
                    "sine=frequency=" + std::to_string(frequency) +
                        ":sample_rate=" + std::to_string(sampleRate) + duration};
    };
    List args{"-f", "lavfi", "-i",
              "testsrc2=size=" + size + ":rate=" + std::to_string(frameRate) + duration};
    args = args + tone(440);
    return secondTone ? args + tone(660) : args;
}

FfmpegArgs::List FfmpegArgs::h264(int frameRate, const std::string& bitrate) {
    const std::string gop = std::to_string(frameRate * 2);
    return {"-c:v",        "libx264", "-preset",       "ultrafast", "-profile:v", "baseline",
            "-pix_fmt",    "yuv420p", "-b:v",          bitrate,     "-g",         gop,
            "-keyint_min", gop,       "-sc_threshold", "0"};
}

FfmpegArgs::List FfmpegArgs::aac() {
    return {"-c:a", "aac", "-b:a", "64k", "-ac", "2"};
}

FfmpegArgs::List FfmpegArgs::hlsVod(int segmentSeconds) {
    return {"-f", "hls", "-hls_time", std::to_string(segmentSeconds), "-hls_playlist_type", "vod"};
}

}  // namespace zarvo::origin
