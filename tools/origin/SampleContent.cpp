#include "origin/SampleContent.h"

#include <fstream>

#include "origin/ContentCache.h"
#include "origin/ContentGenerator.h"
#include "origin/ToolRun.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

fs::path SampleContent::defaultCacheRoot() {
    return ContentCache::defaultRoot();
}

std::string SampleContent::recipeHash() {
    return ContentCache::hash(ContentGenerator::recipe());
}

std::variant<SampleContent, Error> SampleContent::prepare(fs::path cacheRoot) {
    auto prepared = ContentCache::prepare(
        cacheRoot.empty() ? defaultCacheRoot() : cacheRoot, recipeHash(), "variants.txt",
        [](const fs::path& directory) -> std::optional<Error> {
            if (auto failed = ContentGenerator::generate(directory)) {
                return failed;
            }
            if (auto made = load(directory); auto* content = std::get_if<SampleContent>(&made)) {
                // Static masters, for clients that read the folder directly.
                writeTextFile(directory / "vod" / "master.m3u8", content->masterPlaylist(true));
                writeTextFile(directory / "protected" / "master.m3u8",
                              content->masterPlaylist(true));
            }
            return std::nullopt;
        });
    if (auto* error = std::get_if<Error>(&prepared)) {
        return *error;
    }
    return load(std::get<fs::path>(prepared));
}

std::variant<SampleContent, Error> SampleContent::load(const fs::path& directory) {
    SampleContent content;
    content.directory_ = directory;
    content.contentKey_ = ContentGenerator::contentKey();
    std::ifstream in(directory / "variants.txt");
    Variant variant;
    while (in >> variant.name >> variant.width >> variant.height >> variant.bandwidth) {
        content.variants_.push_back(variant);
    }
    if (content.variants_.empty()) {
        return contentError("The content cache " + directory.string() + " is damaged; delete it.");
    }
    return content;
}

std::string SampleContent::masterPlaylist(bool withSubtitles, const std::string& uriQuery) const {
    const std::string suffix = uriQuery.empty() ? "" : "?" + uriQuery;
    std::string text = "#EXTM3U\n#EXT-X-VERSION:4\n#EXT-X-INDEPENDENT-SEGMENTS\n";
    text +=
        "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"audio\",NAME=\"Polski\",LANGUAGE=\"pol\","
        "DEFAULT=YES,AUTOSELECT=YES,CHANNELS=\"2\",URI=\"a_pol/index.m3u8" +
        suffix + "\"\n";
    text +=
        "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"audio\",NAME=\"English\",LANGUAGE=\"eng\","
        "DEFAULT=NO,AUTOSELECT=YES,CHANNELS=\"2\",URI=\"a_eng/index.m3u8" +
        suffix + "\"\n";
    if (withSubtitles) {
        text +=
            "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"Polski\",LANGUAGE=\"pol\","
            "DEFAULT=NO,AUTOSELECT=YES,FORCED=NO,URI=\"subs/index.m3u8" +
            suffix + "\"\n";
    }
    for (const auto& variant : variants_) {
        // BANDWIDTH last and PROGRAM-ID the last other numeric attribute: simple line-pattern
        // readers of STREAM-INF take the last "=<digits>" values.
        text += "#EXT-X-STREAM-INF:RESOLUTION=" + std::to_string(variant.width) + "x" +
                std::to_string(variant.height) +
                ",CODECS=\"avc1.42c01e,mp4a.40.2\",AUDIO=\"audio\"" +
                (withSubtitles ? ",SUBTITLES=\"subs\"" : "") +
                ",PROGRAM-ID=1,BANDWIDTH=" + std::to_string(variant.bandwidth) + "\n";
        text += variant.name + "/index.m3u8" + suffix + "\n";
    }
    return text;
}

}  // namespace zarvo::origin
