#include "origin/StreamCorpus.h"

#include <fstream>
#include <functional>
#include <sstream>

#include "origin/ContentCache.h"
#include "origin/FfmpegArgs.h"
#include "origin/ToolRun.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

constexpr int clipSeconds = 6;
constexpr const char* key = "zm-corpus-key-01";  // 16 bytes
constexpr const char* keyIv = "0x000102030405060708090a0b0c0d0e0f";
// The generated transport streams start at 1.4 s (90 kHz ticks): subtitles are timed from it.
constexpr const char* timestampMap = "X-TIMESTAMP-MAP=MPEGTS:126000,LOCAL:00:00:00.000";

using Args = FfmpegArgs::List;

// A VOD of 2-second segments with a master named master.m3u8 beside the media playlist.
Args hls(const Args& extra = {}) {
    return FfmpegArgs::hlsVod() + Args{"-master_pl_name", "master.m3u8"} + extra;
}

Args segmentsInto(const fs::path& folder, const std::string& pattern) {
    return {"-hls_segment_filename", (folder / pattern).string(), (folder / "index.m3u8").string()};
}

std::optional<Error> plainShape(const fs::path& root, const std::string& name, const Args& format,
                                const std::string& pattern, const fs::path& log) {
    const fs::path folder = root / name;
    fs::create_directories(folder);
    return runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds) +
                       Args{"-map", "0:v", "-map", "1:a"} + FfmpegArgs::h264() + FfmpegArgs::aac() +
                       hls(format) + segmentsInto(folder, pattern),
                   log);
}

std::optional<Error> makeByteRanges(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "byterange";
    fs::create_directories(folder);
    return runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds) +
                       Args{"-map", "0:v", "-map", "1:a"} + FfmpegArgs::h264() + FfmpegArgs::aac() +
                       hls({"-hls_flags", "single_file"}) + Args{(folder / "index.m3u8").string()},
                   log);
}

std::optional<Error> makeAes(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "aes";
    fs::create_directories(folder);
    const fs::path info = root / "aes.keyinfo";
    if (!writeTextFile(folder / "key.bin", key) ||
        !writeTextFile(info, "key.bin\n" + (folder / "key.bin").string() + "\n" +
                                 std::string(keyIv).substr(2) + "\n")) {
        return contentError("Cannot write the key of the aes shape.");
    }
    auto error = plainShape(root, "aes", {"-hls_key_info_file", info.string()}, "seg%d.ts", log);
    fs::remove(info);
    return error;
}

std::optional<Error> makeVariants(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "variants";
    fs::create_directories(folder);
    Args args = FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds);
    const char* sizes[] = {"256x144", "320x180", "480x270"};
    const char* rates[] = {"150k", "250k", "450k"};
    for (int i = 0; i < 3; ++i) {
        args = args + Args{"-map", "0:v", "-map", "1:a"};
    }
    args = args + FfmpegArgs::h264();
    for (int i = 0; i < 3; ++i) {
        const std::string index = std::to_string(i);
        args = args + Args{"-s:v:" + index, sizes[i], "-b:v:" + index, rates[i]};
    }
    return runTool(args + FfmpegArgs::aac() + hls({"-var_stream_map", "v:0,a:0 v:1,a:1 v:2,a:2"}) +
                       Args{"-hls_segment_filename", (folder / "v%v/seg%d.ts").string(),
                            (folder / "v%v/index.m3u8").string()},
                   log);
}

std::optional<Error> makeAudioGroup(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "audio-group";
    fs::create_directories(folder);
    return runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds, true) +
                       Args{"-map", "0:v", "-map", "1:a", "-map", "2:a"} + FfmpegArgs::h264() +
                       FfmpegArgs::aac() +
                       hls({"-var_stream_map",
                            "v:0,agroup:aud,name:video "
                            "a:0,agroup:aud,language:eng,name:english,default:yes "
                            "a:1,agroup:aud,language:pol,name:polish"}) +
                       Args{"-hls_segment_filename", (folder / "%v/seg%d.ts").string(),
                            (folder / "%v/index.m3u8").string()},
                   log);
}

std::optional<Error> makeHevc(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "hevc";
    fs::create_directories(folder);
    return runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds) +
                       Args{"-map", "0:v", "-map", "1:a", "-c:v", "libx265", "-preset", "ultrafast",
                            "-x265-params", "log-level=error:keyint=48:min-keyint=48:scenecut=0",
                            "-tag:v", "hvc1", "-pix_fmt", "yuv420p", "-b:v", "200k"} +
                       FfmpegArgs::aac() + hls({"-hls_segment_type", "fmp4"}) +
                       segmentsInto(folder, "seg%d.m4s"),
                   log);
}

std::optional<Error> makeAudioOnly(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "audio-only";
    fs::create_directories(folder);
    return runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds) + Args{"-map", "1:a"} +
                       FfmpegArgs::aac() + hls() + segmentsInto(folder, "seg%d.ts"),
                   log);
}

// Two encodings of other sizes, frame rates, sample rates and timestamps, one after the other.
std::optional<Error> makeDiscontinuity(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "discontinuity";
    fs::create_directories(folder);
    auto part = [&](const std::string& prefix, int seconds, const std::string& size, int rate,
                    int sampleRate, const Args& extra) {
        return runTool(FfmpegArgs::command() +
                           FfmpegArgs::sources(seconds, false, size, rate, sampleRate) +
                           Args{"-map", "0:v", "-map", "1:a"} + FfmpegArgs::h264(rate, "250k") +
                           FfmpegArgs::aac() + extra + FfmpegArgs::hlsVod() +
                           Args{"-hls_segment_filename", (folder / (prefix + "%d.ts")).string(),
                                (folder / (prefix + ".m3u8")).string()},
                       log);
    };
    if (auto error = part("a", 4, "320x180", 24, 48000, {})) {
        return error;
    }
    if (auto error = part("b", 2, "480x270", 30, 44100, {"-output_ts_offset", "100"})) {
        return error;
    }
    fs::remove(folder / "a.m3u8");
    fs::remove(folder / "b.m3u8");
    const std::string media =
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n"
        "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:2.000000,\na0.ts\n#EXTINF:2.000000,\na1.ts\n"
        "#EXT-X-DISCONTINUITY\n#EXTINF:2.000000,\nb0.ts\n#EXT-X-ENDLIST\n";
    const std::string master =
        "#EXTM3U\n#EXT-X-VERSION:3\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=420000,RESOLUTION=480x270,CODECS=\"avc1.42c015,mp4a.40.2\"\n"
        "index.m3u8\n";
    if (!writeTextFile(folder / "index.m3u8", media) ||
        !writeTextFile(folder / "master.m3u8", master)) {
        return contentError("Cannot write the discontinuity playlists.");
    }
    return std::nullopt;
}

std::string crlf(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    }
    return out;
}

// A master written on another system: a byte-order mark, CR LF line ends, tags no player knows,
// an I-frame variant and the optional attributes of a variant.
std::optional<Error> makeQuirks(const fs::path& root) {
    const fs::path folder = root / "quirks";
    fs::create_directories(folder);
    std::error_code error;
    for (int i = 0; i < clipSeconds / 2; ++i) {
        const std::string name = "seg" + std::to_string(i) + ".ts";
        fs::copy_file(root / "ts" / name, folder / name, error);
    }
    const std::string master =
        "\xEF\xBB\xBF#EXTM3U\n#EXT-X-VERSION:4\n#EXT-X-ZM-VENDOR:ORIGIN=\"edge-7\",TTL=30\n"
        "#EXT-X-INDEPENDENT-SEGMENTS\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=290400,AVERAGE-BANDWIDTH=250000,RESOLUTION=320x180,"
        "FRAME-RATE=24.000,CODECS=\"avc1.42c00d,mp4a.40.2\",HDCP-LEVEL=NONE\nindex.m3u8\n"
        "#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=80000,RESOLUTION=320x180,"
        "CODECS=\"avc1.42c00d\",URI=\"iframes.m3u8\"\n";
    std::string media =
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-ZM-VENDOR:CACHE=1\n"
        "#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n";
    std::string iframes =
        "#EXTM3U\n#EXT-X-VERSION:4\n#EXT-X-TARGETDURATION:2\n#EXT-X-PLAYLIST-TYPE:VOD\n"
        "#EXT-X-I-FRAMES-ONLY\n";
    for (int i = 0; i < clipSeconds / 2; ++i) {
        media += "#EXTINF:2.000000,\nseg" + std::to_string(i) + ".ts\n";
        iframes += "#EXTINF:2.000000,\nseg" + std::to_string(i) + ".ts\n";
    }
    if (error || !writeTextFile(folder / "master.m3u8", crlf(master)) ||
        !writeTextFile(folder / "index.m3u8", crlf(media + "#EXT-X-ENDLIST\n")) ||
        !writeTextFile(folder / "iframes.m3u8", iframes + "#EXT-X-ENDLIST\n")) {
        return contentError("Cannot write the quirks shape.");
    }
    return std::nullopt;
}

// References by "../" and by absolute paths from the server's root.
std::optional<Error> makePaths(const fs::path& root) {
    const fs::path folder = root / "paths";
    std::error_code error;
    for (const char* sub : {"master", "media", "segments"}) {
        fs::create_directories(folder / sub, error);
    }
    for (int i = 0; i < clipSeconds / 2; ++i) {
        const std::string name = "seg" + std::to_string(i) + ".ts";
        fs::copy_file(root / "ts" / name, folder / "segments" / name, error);
    }
    const std::string master =
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-STREAM-INF:BANDWIDTH=290400,RESOLUTION=320x180,"
        "CODECS=\"avc1.42c00d,mp4a.40.2\"\n../media/index.m3u8\n";
    const std::string media =
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n"
        "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:2.000000,\n/paths/segments/seg0.ts\n"
        "#EXTINF:2.000000,\n../segments/seg1.ts\n#EXTINF:2.000000,\n/paths/segments/seg2.ts\n"
        "#EXT-X-ENDLIST\n";
    if (error || !writeTextFile(folder / "master" / "master.m3u8", master) ||
        !writeTextFile(folder / "media" / "index.m3u8", media)) {
        return contentError("Cannot write the paths shape.");
    }
    return std::nullopt;
}

// WebVTT renditions cut by ffmpeg, each cue file mapped onto the streams' timestamps.
std::optional<Error> makeSubtitles(const fs::path& root, const fs::path& log) {
    const fs::path folder = root / "subtitles";
    fs::create_directories(folder);
    const fs::path cues = root / "subtitles.srt";
    if (!writeTextFile(cues,
                       "1\n00:00:00,500 --> 00:00:01,800\nFirst cue\n\n"
                       "2\n00:00:02,500 --> 00:00:03,800\nSecond cue\n\n"
                       "3\n00:00:04,500 --> 00:00:05,500\nThird cue\n")) {
        return contentError("Cannot write the subtitles.");
    }
    auto error =
        runTool(FfmpegArgs::command() + FfmpegArgs::sources(clipSeconds) +
                    Args{"-i", cues.string()} + Args{"-map", "0:v", "-map", "1:a", "-map", "2:s"} +
                    FfmpegArgs::h264() + FfmpegArgs::aac() + Args{"-c:s", "webvtt"} +
                    hls({"-var_stream_map", "v:0,a:0,s:0,sgroup:subs,language:eng,name:main"}) +
                    Args{"-hls_segment_filename", (folder / "%v/seg%d.ts").string(),
                         (folder / "%v/index.m3u8").string()},
                log);
    fs::remove(cues);
    if (error) {
        return error;
    }
    for (const auto& entry : fs::directory_iterator(folder / "main")) {
        if (entry.path().extension() != ".vtt") {
            continue;
        }
        std::ifstream in(entry.path(), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        std::string body = text.str();
        const auto header = body.find('\n');
        if (header == std::string::npos ||
            !writeTextFile(entry.path(), body.substr(0, header + 1) + timestampMap + "\n" +
                                             body.substr(header + 1))) {
            return contentError("Cannot map the timestamps of " + entry.path().string() + ".");
        }
    }
    return std::nullopt;
}

std::optional<Error> generate(const fs::path& root) {
    std::error_code error;
    fs::create_directories(root, error);
    if (error) {
        return contentError("Cannot create " + root.string() + ": " + error.message());
    }
    const fs::path log = root / "ffmpeg.log";
    const std::vector<std::function<std::optional<Error>()>> steps = {
        [&] { return plainShape(root, "ts", {}, "seg%d.ts", log); },
        [&] {
            return plainShape(root, "fmp4", {"-hls_segment_type", "fmp4"}, "seg%d.m4s", log);
        },
        [&] { return makeByteRanges(root, log); },
        [&] { return makeAes(root, log); },
        [&] { return makeVariants(root, log); },
        [&] { return makeAudioGroup(root, log); },
        [&] { return makeHevc(root, log); },
        [&] { return makeAudioOnly(root, log); },
        [&] { return makeDiscontinuity(root, log); },
        [&] { return makeQuirks(root); },
        [&] { return makePaths(root); },
        [&] { return makeSubtitles(root, log); },
        [&] {
            return plainShape(root, "program-date-time", {"-hls_flags", "program_date_time"},
                              "seg%d.ts", log);
        },
    };
    for (const auto& step : steps) {
        if (auto failed = step()) {
            return failed;
        }
    }
    return writeTextFile(root / "recipe.txt", StreamCorpus::recipe() + "\n")
               ? std::nullopt
               : std::optional(contentError("Cannot write the corpus recipe."));
}

}  // namespace

const std::vector<StreamCorpus::Shape>& StreamCorpus::shapes() {
    static const std::vector<Shape> all = {
        {"ts", "/ts/master.m3u8", "/ts/index.m3u8", 6, {{"video", "/ts/index.m3u8"}}},
        {"fmp4", "/fmp4/master.m3u8", "/fmp4/index.m3u8", 6, {{"video", "/fmp4/index.m3u8"}}},
        {"byterange",
         "/byterange/master.m3u8",
         "/byterange/index.m3u8",
         6,
         {{"video", "/byterange/index.m3u8"}}},
        {"aes", "/aes/master.m3u8", "/aes/index.m3u8", 6, {{"video", "/aes/index.m3u8"}}},
        {"variants",
         "/variants/master.m3u8",
         "/variants/v1/index.m3u8",
         6,
         {{"video", "/variants/v2/index.m3u8"}}},
        {"audio-group",
         "/audio-group/master.m3u8",
         "/audio-group/video/index.m3u8",
         6,
         {{"video", "/audio-group/video/index.m3u8"},
          {"audio1", "/audio-group/english/index.m3u8"},
          {"audio2", "/audio-group/polish/index.m3u8"}}},
        {"hevc", "/hevc/master.m3u8", "/hevc/index.m3u8", 6, {{"video", "/hevc/index.m3u8"}}},
        {"audio-only",
         "/audio-only/master.m3u8",
         "/audio-only/index.m3u8",
         6,
         {{"video", "/audio-only/index.m3u8"}}},
        {"discontinuity",
         "/discontinuity/master.m3u8",
         "/discontinuity/index.m3u8",
         6,
         {{"video", "/discontinuity/index.m3u8"}}},
        {"quirks",
         "/quirks/master.m3u8",
         "/quirks/index.m3u8",
         6,
         {{"video", "/quirks/index.m3u8"}}},
        {"paths",
         "/paths/master/master.m3u8",
         "/paths/media/index.m3u8",
         6,
         {{"video", "/paths/media/index.m3u8"}}},
        {"subtitles",
         "/subtitles/master.m3u8",
         "/subtitles/main/index.m3u8",
         6,
         {{"video", "/subtitles/main/index.m3u8"},
          {"subtitles1", "/subtitles/main/index_vtt.m3u8"}}},
        {"program-date-time",
         "/program-date-time/master.m3u8",
         "/program-date-time/index.m3u8",
         6,
         {{"video", "/program-date-time/index.m3u8"}}},
    };
    return all;
}

std::string StreamCorpus::recipe() {
    std::string text = "zm stream corpus 1; " + std::to_string(clipSeconds) +
                       "s clips, 2s segments; 320x180@24 h264 baseline 200k, aac 64k; shapes:";
    for (const auto& shape : shapes()) {
        text += " " + shape.name;
    }
    return text + "; key " + key + " iv " + keyIv + "; " + timestampMap;
}

std::string StreamCorpus::contentKey() {
    return key;
}

std::variant<StreamCorpus, Error> StreamCorpus::prepare(fs::path cacheRoot) {
    return ContentCache::prepareContent<StreamCorpus>(cacheRoot, "corpus-", recipe(), generate);
}

}  // namespace zarvo::origin
