#include "origin/ContentGenerator.h"

#include <cstdio>
#include <vector>

#include "zarvo/platform/DataFile.h"

#include "origin/FfmpegArgs.h"
#include "origin/SampleContent.h"
#include "origin/SegmentList.h"
#include "origin/ToolRun.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

struct VideoRung {
    const char* name;
    int width;
    int height;
    const char* bitrate;
    bool singleFile;  // byte ranges into one file
};

constexpr VideoRung videoRungs[] = {
    {"v0", 320, 180, "250k", false},
    {"v1", 480, 270, "450k", true},
    {"v2", 640, 360, "800k", false},
};
constexpr const char* audioRenditions[] = {"a_pol", "a_eng"};
constexpr int durationSeconds = 30;
constexpr int segmentSeconds = 2;
constexpr int frameRate = 24;

std::vector<std::string> hlsOutput(const fs::path& folder, bool singleFile,
                                   std::vector<std::string> extra = {}) {
    std::vector<std::string> args = FfmpegArgs::hlsVod(segmentSeconds);
    args.insert(args.end(), extra.begin(), extra.end());
    if (singleFile) {
        args.insert(args.end(), {"-hls_flags", "single_file"});
    } else {
        args.insert(args.end(), {"-hls_segment_filename", (folder / "seg%d.ts").string()});
    }
    args.push_back((folder / "index.m3u8").string());
    return args;
}

std::string webVtt() {
    // MPEGTS 126000 is the 1.4 s start of the generated transport streams.
    std::string text = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:126000,LOCAL:00:00:00.000\n\n";
    for (int cue = 0; cue < durationSeconds / 3; ++cue) {
        char line[96];
        std::snprintf(line, sizeof line, "00:00:%02d.000 --> 00:00:%02d.500\nNapis %d\n\n", cue * 3,
                      cue * 3 + 2, cue + 1);
        text += line;
    }
    return text;
}

std::string subtitlePlaylist() {
    return "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:" + std::to_string(durationSeconds) +
           "\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:" +
           std::to_string(durationSeconds) + ".000000,\nsubs.vtt\n#EXT-X-ENDLIST\n";
}

// Peak bits per second over the segments of one media playlist.
std::optional<double> peakBitrate(const fs::path& folder) {
    auto text = DataFile::read(folder / "index.m3u8");
    auto list = text ? SegmentList::parse(*text) : std::nullopt;
    if (!list) {
        return std::nullopt;
    }
    double peak = 0;
    for (const auto& segment : list->segments()) {
        std::error_code error;
        double bytes = segment.byteRange
                           ? std::strtod(segment.byteRange->c_str(), nullptr)
                           : static_cast<double>(fs::file_size(folder / segment.uri, error));
        if (segment.duration > 0.5) {  // a trailing sliver would overstate the rate
            peak = std::max(peak, bytes * 8.0 / segment.duration);
        }
    }
    return peak;
}

std::optional<Error> makeClear(const fs::path& vod, const fs::path& log) {
    const std::string seconds = std::to_string(durationSeconds);
    std::vector<std::string> args = {
        "ffmpeg",
        "-hide_banner",
        "-nostdin",
        "-loglevel",
        "error",
        "-y",
        "-f",
        "lavfi",
        "-i",
        "testsrc2=size=640x360:rate=" + std::to_string(frameRate) + ":duration=" + seconds,
        "-f",
        "lavfi",
        "-i",
        "sine=frequency=440:sample_rate=48000:duration=" + seconds,
        "-f",
        "lavfi",
        "-i",
        "sine=frequency=660:sample_rate=48000:duration=" + seconds};
    const std::string gop = std::to_string(frameRate * segmentSeconds);
    for (const auto& rung : videoRungs) {
        fs::create_directories(vod / rung.name);
        std::vector<std::string> video = {
            "-map",
            "0:v",
            "-s",
            std::to_string(rung.width) + "x" + std::to_string(rung.height),
            "-c:v",
            "libx264",
            "-preset",
            "ultrafast",
            "-profile:v",
            "baseline",
            "-level",
            "3.0",
            "-pix_fmt",
            "yuv420p",
            "-b:v",
            rung.bitrate,
            "-g",
            gop,
            "-keyint_min",
            gop,
            "-sc_threshold",
            "0"};
        args.insert(args.end(), video.begin(), video.end());
        auto output = hlsOutput(vod / rung.name, rung.singleFile);
        args.insert(args.end(), output.begin(), output.end());
    }
    int input = 1;
    for (const char* name : audioRenditions) {
        fs::create_directories(vod / name);
        const std::string language = std::string(name).substr(2);
        std::vector<std::string> audio = {"-map",
                                          std::to_string(input++) + ":a",
                                          "-c:a",
                                          "aac",
                                          "-b:a",
                                          "64k",
                                          "-ac",
                                          "2",
                                          "-metadata:s:a:0",
                                          "language=" + language};
        args.insert(args.end(), audio.begin(), audio.end());
        auto output = hlsOutput(vod / name, false);
        args.insert(args.end(), output.begin(), output.end());
    }
    if (auto error = runTool(args, log)) {
        return error;
    }
    fs::create_directories(vod / "subs");
    if (!writeTextFile(vod / "subs" / "subs.vtt", webVtt()) ||
        !writeTextFile(vod / "subs" / "index.m3u8", subtitlePlaylist())) {
        return contentError("Cannot write the subtitles.");
    }
    return std::nullopt;
}

// Re-segments every clear rendition without re-encoding, encrypted with AES-128.
std::optional<Error> makeProtected(const fs::path& vod, const fs::path& out, const fs::path& work,
                                   const fs::path& log) {
    const fs::path keyFile = work / "content.key";
    if (!writeTextFile(keyFile, ContentGenerator::contentKey()) ||
        !writeTextFile(work / "keyinfo", std::string("skd://") + SampleContent::contentIdentifier +
                                             "\n" + keyFile.string() +
                                             "\n5a4d0000000000000000000000000001\n")) {
        return contentError("Cannot write the key information.");
    }
    std::vector<std::string> args = {"ffmpeg",    "-hide_banner", "-nostdin",
                                     "-loglevel", "error",        "-y"};
    std::vector<std::string> names;
    for (const auto& rung : videoRungs) {
        names.emplace_back(rung.name);
    }
    names.insert(names.end(), std::begin(audioRenditions), std::end(audioRenditions));
    for (const auto& name : names) {
        args.insert(args.end(), {"-i", (vod / name / "index.m3u8").string()});
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        fs::create_directories(out / names[i]);
        args.insert(args.end(), {"-map", std::to_string(i) + ":0", "-c", "copy"});
        auto output =
            hlsOutput(out / names[i], false, {"-hls_key_info_file", (work / "keyinfo").string()});
        args.insert(args.end(), output.begin(), output.end());
    }
    if (auto error = runTool(args, log)) {
        return error;
    }
    std::error_code error;
    fs::copy(vod / "subs", out / "subs", fs::copy_options::recursive, error);
    if (error) {
        return contentError("Cannot copy the subtitles: " + error.message());
    }
    return std::nullopt;
}

}  // namespace

std::string ContentGenerator::recipe() {
    std::string text = "zm-origin content 1; " + std::to_string(durationSeconds) + "s at " +
                       std::to_string(frameRate) + "fps; segments " +
                       std::to_string(segmentSeconds) + "s; tones 440/660; ";
    for (const auto& rung : videoRungs) {
        text += std::string(rung.name) + " " + std::to_string(rung.width) + "x" +
                std::to_string(rung.height) + "@" + rung.bitrate + (rung.singleFile ? "/br" : "") +
                "; ";
    }
    return text + "audio pol,eng 64k; subs pol; aes-128 skd://" + SampleContent::contentIdentifier;
}

Data ContentGenerator::contentKey() {
    return Data("\x5a\x4d\x2d\x73\x61\x6d\x70\x6c\x65\x2d\x6b\x65\x79\x2d\x30\x31", 16);
}

std::optional<Error> ContentGenerator::generate(const fs::path& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) {
        return contentError("Cannot create " + directory.string() + ": " + error.message());
    }
    const fs::path log = directory / "ffmpeg.log";
    const fs::path vod = directory / "vod";
    if (auto failed = makeClear(vod, log)) {
        return failed;
    }
    if (auto failed = makeProtected(vod, directory / "protected", directory, log)) {
        return failed;
    }
    double audioPeak = 0;
    for (const char* name : audioRenditions) {
        audioPeak = std::max(audioPeak, peakBitrate(vod / name).value_or(0));
    }
    std::string variants;
    for (const auto& rung : videoRungs) {
        auto peak = peakBitrate(vod / rung.name);
        if (!peak) {
            return contentError(std::string("ffmpeg wrote no playable ") + rung.name +
                                " playlist.");
        }
        variants += std::string(rung.name) + " " + std::to_string(rung.width) + " " +
                    std::to_string(rung.height) + " " +
                    std::to_string(static_cast<long long>(*peak + audioPeak)) + "\n";
    }
    if (!writeTextFile(directory / "variants.txt", variants) ||
        !writeTextFile(directory / "recipe.txt", recipe() + "\n")) {
        return contentError("Cannot write the content description.");
    }
    return std::nullopt;
}

}  // namespace zarvo::origin
