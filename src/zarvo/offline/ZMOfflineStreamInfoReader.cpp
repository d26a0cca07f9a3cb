#include "zarvo/offline/ZMOfflineStreamInfoReader.h"

#include <algorithm>
#include <cctype>

#include "zarvo/hls/ManifestBuilder.h"

namespace zarvo {
namespace {

// Audio allowances in bits per second and the divisors that turn bits into bytes.
constexpr double kFullAudioBitrate = 256000;
constexpr double kBasicAudioBitrate = 128000;
constexpr double kAudioDivisor = 7.5;
constexpr double kVideoDivisor = 7.95;

std::uint64_t nonNegative(std::int64_t value) {
    return value < 0 ? 0 : static_cast<std::uint64_t>(value);
}

}  // namespace

std::shared_ptr<ZMOfflineStreamInfoReader> ZMOfflineStreamInfoReader::make(Url url) {
    return std::shared_ptr<ZMOfflineStreamInfoReader>(
        new ZMOfflineStreamInfoReader(std::move(url)));
}

std::shared_ptr<MainHLSInfo> ZMOfflineStreamInfoReader::hlsInfo() const {
    std::lock_guard lock(mutex_);
    return hlsInfo_;
}

std::shared_ptr<MasterPlaylist> ZMOfflineStreamInfoReader::hlsMasterPlaylist() const {
    std::lock_guard lock(mutex_);
    return hlsMasterPlaylist_;
}

void ZMOfflineStreamInfoReader::loadPlaylist(std::function<void(bool)> completion) {
    std::weak_ptr<ZMOfflineStreamInfoReader> weakSelf = weak_from_this();
    MainHLSInfo::load(url_, [weakSelf, completion = std::move(completion)](
                                std::shared_ptr<MainHLSInfo> info, std::optional<Error> error) {
        auto self = weakSelf.lock();
        if (!self || !info || error) {
            completion(false);
            return;
        }
        auto master = ManifestBuilder().parse(self->url_);
        {
            std::lock_guard lock(self->mutex_);
            self->hlsMasterPlaylist_ = std::move(master);
            self->hlsInfo_ = std::move(info);
        }
        completion(true);
    });
}

double ZMOfflineStreamInfoReader::contentDuration() const {
    auto master = hlsMasterPlaylist();
    if (!master) {
        return 0;
    }
    auto first = master->getPlaylist(0);
    return first ? static_cast<double>(first->duration()) : 0;
}

ZMOfflineSize ZMOfflineStreamInfoReader::estimatedOfflineSize(std::uint64_t videoBandwidth) const {
    const double duration = contentDuration();
    const double video = duration * static_cast<double>(videoBandwidth) / kVideoDivisor;
    return ZMOfflineSize(duration * kFullAudioBitrate / kAudioDivisor + video,
                         duration * kBasicAudioBitrate / kAudioDivisor + video);
}

bool ZMOfflineStreamInfoReader::hasPolishVersion() const {
    auto info = hlsInfo();
    if (!info || info->mediaLines.size() < 2) {
        return false;
    }
    return std::any_of(info->mediaLines.begin(), info->mediaLines.end(), [](std::string line) {
        std::transform(line.begin(), line.end(), line.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return line.find("pol") != std::string::npos;
    });
}

std::vector<ZMDownloadQuality> ZMOfflineStreamInfoReader::availableDownloadQualities() const {
    std::vector<ZMDownloadQuality> qualities;
    auto info = hlsInfo();
    if (!info) {
        return qualities;
    }
    for (const auto& stream : info->streams) {
        ZMOfflineSize size = estimatedOfflineSize(nonNegative(stream.bandwidth));
        qualities.push_back({nonNegative(stream.width), nonNegative(stream.height),
                             nonNegative(stream.bandwidth), size.size, size.sizeWithBasicAudio});
    }
    return qualities;
}

std::optional<std::vector<std::string>> ZMOfflineStreamInfoReader::mediaLines() const {
    auto info = hlsInfo();
    return info ? std::optional(info->mediaLines) : std::nullopt;
}

std::optional<std::vector<std::string>> ZMOfflineStreamInfoReader::streamLines() const {
    auto info = hlsInfo();
    return info ? std::optional(info->streamsLines) : std::nullopt;
}

std::optional<std::vector<std::string>> ZMOfflineStreamInfoReader::headerLines() const {
    auto info = hlsInfo();
    return info ? std::optional(info->headerLines) : std::nullopt;
}

std::optional<std::vector<std::string>> ZMOfflineStreamInfoReader::subtitlesHlsLines() const {
    auto info = hlsInfo();
    return info ? std::optional(info->subtitlesLines) : std::nullopt;
}

}  // namespace zarvo
