#include "origin/SampleContent.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

#include "origin/ContentGenerator.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

Error failure(const std::string& description) {
    return Error::withDescription(SampleContent::errorDomain, 1, description);
}

// An exclusive flock on a file, held for the object's lifetime.
class FileLock {
public:
    explicit FileLock(const fs::path& path) : fd_(open(path.c_str(), O_RDWR | O_CREAT, 0644)) {
        if (fd_ >= 0) {
            while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FileLock() {
        if (fd_ >= 0) {
            close(fd_);  // closing releases the lock
        }
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool locked() const { return fd_ >= 0; }

private:
    int fd_;
};

}  // namespace

fs::path SampleContent::defaultCacheRoot() {
    if (const char* root = std::getenv("ZM_ORIGIN_CACHE"); root && *root) {
        return root;
    }
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg) {
        return fs::path(xdg) / "zarvo" / "origin";
    }
    const char* home = std::getenv("HOME");
    return fs::path(home && *home ? home : "/tmp") / ".cache" / "zarvo" / "origin";
}

std::string SampleContent::recipeHash() {
    // FNV-1a, 64 bits: stable across runs and builds.
    std::uint64_t hash = 14695981039346656037ULL;
    for (unsigned char c : ContentGenerator::recipe()) {
        hash = (hash ^ c) * 1099511628211ULL;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

std::variant<SampleContent, Error> SampleContent::prepare(fs::path cacheRoot) {
    if (cacheRoot.empty()) {
        cacheRoot = defaultCacheRoot();
    }
    std::error_code error;
    fs::create_directories(cacheRoot, error);
    if (error) {
        return failure("Cannot create the content cache " + cacheRoot.string() + ": " +
                       error.message());
    }
    const std::string hash = recipeHash();
    const fs::path finished = cacheRoot / hash;
    FileLock lock(cacheRoot / (hash + ".lock"));
    if (!lock.locked()) {
        return failure("Cannot lock the content cache " + cacheRoot.string() + ".");
    }
    if (!fs::exists(finished / "variants.txt")) {
        // Made beside the final folder and renamed when complete, so a crash never leaves a
        // half-made folder under the final name.
        const fs::path partial = cacheRoot / (hash + ".partial-" + std::to_string(getpid()));
        fs::remove_all(partial, error);
        if (auto failed = ContentGenerator::generate(partial)) {
            fs::remove_all(partial, error);
            return *failed;
        }
        if (auto made = load(partial); auto* content = std::get_if<SampleContent>(&made)) {
            // Static masters, for clients that read the folder directly.
            std::ofstream(partial / "vod" / "master.m3u8") << content->masterPlaylist(true);
            std::ofstream(partial / "protected" / "master.m3u8") << content->masterPlaylist(true);
        }
        fs::remove_all(finished, error);
        fs::rename(partial, finished, error);
        if (error) {
            fs::remove_all(partial, error);
            return failure("Cannot move the content into " + finished.string() + ".");
        }
    }
    return load(finished);
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
        return failure("The content cache " + directory.string() + " is damaged; delete it.");
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
