#pragma once

#include <string>
#include <vector>

namespace zarvo::origin {

// Argument lists of the ffmpeg tool for generated test content: the command, the synthetic
// sources and the encoders every generated stream uses; lists join with +.
struct FfmpegArgs {
    using List = std::vector<std::string>;

    // "ffmpeg", quiet, reading no standard input, overwriting its outputs.
    static List command();
    // Test pattern as input 0 and a 440 Hz tone as input 1 (a 660 Hz tone as input 2 with
    // `secondTone`), `seconds` long, or without end for 0.
    static List sources(int seconds, bool secondTone = false, const std::string& size = "320x180",
                        int frameRate = 24, int sampleRate = 48000);
    // H.264 baseline with a key frame every 2 seconds, so that every 2-second segment starts
    // with one.
    static List h264(int frameRate = 24, const std::string& bitrate = "200k");
    // AAC stereo at 64 kbit/s.
    static List aac();
    // The HLS muxer writing a VOD of `segmentSeconds`-long segments.
    static List hlsVod(int segmentSeconds = 2);
};

FfmpegArgs::List operator+(FfmpegArgs::List a, const FfmpegArgs::List& b);

}  // namespace zarvo::origin
