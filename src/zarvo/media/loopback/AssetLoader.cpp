#include "zarvo/media/loopback/AssetLoader.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/UrlError.h"

namespace zarvo {

namespace {

// How long a live playlist read ahead may wait for the pipeline before it is too old to serve.
constexpr double liveReadAheadLifetime = 1.0;

std::shared_ptr<UrlSession> makeSession(const UrlAsset& asset) {
    auto configuration = UrlSessionConfiguration::defaultConfiguration();
    configuration.httpMaximumConnectionsPerHost = 6;
    for (const auto& [name, value] : asset.options().httpHeaderFields) {
        configuration.httpAdditionalHeaders.emplace_back(name, value);
    }
    return UrlSession::make(std::move(configuration));
}

Error loadError(const Url& url, const AssetLoader::Fetched& fetched) {
    if (fetched.error) {
        return makeMediaError(MediaError::networkFailure,
                              "The master playlist " + url.absoluteString() +
                                  " could not be loaded: " + fetched.error->localizedDescription(),
                              fetched.error);
    }
    if (fetched.statusCode < 200 || fetched.statusCode >= 300) {
        return makeMediaError(MediaError::resourceUnavailable,
                              "The master playlist " + url.absoluteString() + " answered " +
                                  std::to_string(fetched.statusCode) + ".",
                              std::nullopt,
                              {{httpStatusCodeKey, std::to_string(fetched.statusCode)}});
    }
    return makeMediaError(MediaError::invalidPlaylist,
                          url.absoluteString() + " is not an HLS playlist.");
}

}  // namespace

std::shared_ptr<AssetLoader> AssetLoader::start(const std::shared_ptr<UrlAsset>& asset,
                                                const MediaEngineKey& key) {
    auto loader = std::make_shared<AssetLoader>(asset, key);
    const Url& url = asset->playlistUrl();
    if (url.isHttp() || url.isFileUrl()) {
        loader->readAhead(url, true);
    } else {
        // Nothing can read it: the asset fails now rather than wait for a master that never
        // comes.
        asset->failLoading(key, makeTransportError(url, makeUrlError(UrlError::unsupportedUrl,
                                                                     url.absoluteString())));
    }
    return loader;
}

AssetLoader::AssetLoader(const std::shared_ptr<UrlAsset>& asset, const MediaEngineKey& key)
    : asset_(asset), key_(key), session_(makeSession(*asset)) {}

void AssetLoader::fetch(const Url& url, FetchDone done) {
    if (url.isHttp()) {
        // Playlists and keys: both are small, and neither may grow the process without end.
        static_assert(ResponseLimits::playlist == ResponseLimits::keyAnswer);
        UrlRequest request(url);
        request.maximumBodyLength = ResponseLimits::playlist;
        auto task = session_->dataTask(
            std::move(request), [done = std::move(done)](std::optional<Data> data,
                                                         std::optional<HttpUrlResponse> response,
                                                         std::optional<Error> error) {
                Fetched fetched;
                fetched.statusCode = response ? response->statusCode : 0;
                fetched.body = data ? std::move(*data) : Data();
                fetched.error = std::move(error);
                done(std::move(fetched));
            });
        task->resume();
        return;
    }
    auto asset = asset_.lock();
    if (!url.isFileUrl() || !asset || !asset->mayReadFile(url)) {
        done(Fetched{0, {}, makeUrlError(UrlError::unsupportedUrl, url.absoluteString())});
        return;
    }
    DispatchQueue::global()->async([url, done = std::move(done)] {
        const std::string path = url.decodedPath();
        std::error_code error;
        const auto size = std::filesystem::file_size(path, error);
        if (!error && size > ResponseLimits::playlist) {
            done(Fetched{
                0, {}, makeUrlError(UrlError::dataLengthExceedsMaximum, url.absoluteString())});
            return;
        }
        auto body = DataFile::read(path);
        done(body ? Fetched{200, std::move(*body), std::nullopt} : Fetched{404, {}, std::nullopt});
    });
}

void AssetLoader::fetchPlaylist(const Url& url, FetchDone done) {
    {
        std::unique_lock lock(mutex_);
        auto found = readAhead_.find(url.absoluteString());
        if (found != readAhead_.end()) {
            auto& entry = found->second;
            if (!entry.done) {
                entry.waiting.push_back(std::move(done));
                return;
            }
            const bool fresh = entry.keep || Scheduler::standard()->uptime() - entry.fetchedAt <=
                                                 liveReadAheadLifetime;
            if (fresh) {
                Fetched fetched = entry.keep ? entry.fetched : std::move(entry.fetched);
                if (!entry.keep) {
                    readAhead_.erase(found);
                }
                lock.unlock();
                done(std::move(fetched));
                return;
            }
            readAhead_.erase(found);
        }
    }
    fetch(url, std::move(done));
}

void AssetLoader::readAhead(const Url& url, bool isMaster) {
    {
        std::lock_guard lock(mutex_);
        if (!readAhead_.try_emplace(url.absoluteString()).second) {
            return;
        }
    }
    fetch(url, [weakSelf = weak_from_this(), url, isMaster](Fetched fetched) {
        if (auto self = weakSelf.lock()) {
            self->settle(url, std::move(fetched), isMaster);
        }
    });
}

void AssetLoader::settle(const Url& url, Fetched fetched, bool isMaster) {
    const bool usable = !fetched.error && fetched.statusCode >= 200 && fetched.statusCode < 300 &&
                        HlsPlaylistRewriter::looksLikePlaylist(fetched.body);
    HlsPlaylistRewriter::Result info;
    if (usable) {
        info = HlsPlaylistRewriter::rewrite(fetched.body, url,
                                            [](const auto&) { return std::nullopt; });
        info.text.clear();
    }
    std::vector<FetchDone> waiting;
    {
        std::lock_guard lock(mutex_);
        auto& entry = readAhead_[url.absoluteString()];
        entry.done = true;
        // A live media playlist changes with every reload, also when it is the asset's own URL.
        const bool unchanging =
            info.isMasterPlaylist || info.hasEndList || info.playlistType == "VOD";
        entry.keep = usable ? unchanging : isMaster;
        entry.fetched = fetched;
        entry.fetchedAt = Scheduler::standard()->uptime();
        waiting.swap(entry.waiting);
        if (!waiting.empty() && !entry.keep) {
            readAhead_.erase(url.absoluteString());
        }
    }
    for (auto& done : waiting) {
        done(fetched);
    }
    if (!isMaster) {
        return;
    }
    auto asset = asset_.lock();
    if (!asset) {
        return;
    }
    if (!usable) {
        asset->failLoading(key_, loadError(url, fetched));
        return;
    }
    asset->finishLoading(
        key_, info.isMasterPlaylist ? groupsOf(info) : std::vector<MediaSelectionGroup>{});
    for (const auto& variant : info.variants) {
        if (!variant.isIFrameOnly) {
            readAhead(variant.url, false);
        }
    }
    // The player plays one subtitle rendition even while none is shown: the first, unless one
    // is chosen. It is the last of an item's streams to get going, so its playlist waits ready.
    bool firstSubtitles = true;
    for (const auto& rendition : info.renditions) {
        const bool subtitles = rendition.type == "SUBTITLES";
        if (rendition.url &&
            (rendition.isDefault || rendition.type == "AUDIO" || (subtitles && firstSubtitles))) {
            readAhead(*rendition.url, false);
        }
        firstSubtitles = firstSubtitles && !(subtitles && rendition.url);
    }
}

void AssetLoader::masterRead(const HlsPlaylistRewriter::Result& master) {
    auto asset = asset_.lock();
    if (asset && !asset->isLoaded()) {
        asset->finishLoading(key_, groupsOf(master));
    }
}

void AssetLoader::masterFailed(const Error& error) {
    if (auto asset = asset_.lock()) {
        asset->failLoading(key_, error);
    }
}

std::vector<MediaSelectionGroup> AssetLoader::groupsOf(const HlsPlaylistRewriter::Result& master) {
    using MediaType = MediaSelectionOption::MediaType;
    std::vector<MediaSelectionOption> audible;
    std::vector<MediaSelectionOption> legible;
    std::set<std::pair<std::string, std::string>> seenAudible;
    std::set<std::pair<std::string, std::string>> seenLegible;
    for (const auto& rendition : master.renditions) {
        MediaSelectionOption::Rendition option;
        if (rendition.type == "AUDIO") {
            option.mediaType = MediaType::audio;
        } else if (rendition.type == "SUBTITLES") {
            option.mediaType = MediaType::subtitle;
        } else if (rendition.type == "CLOSED-CAPTIONS") {
            option.mediaType = MediaType::closedCaption;
        } else {
            continue;
        }
        option.groupId = rendition.groupId;
        option.name = rendition.name;
        option.language = rendition.language;
        option.assocLanguage = rendition.assocLanguage;
        option.characteristics = rendition.characteristics;
        option.instreamId = rendition.instreamId;
        option.isDefault = rendition.isDefault;
        option.autoselect = rendition.autoselect;
        option.forced = rendition.forced;
        option.hasUri = rendition.url.has_value();
        const bool isAudio = option.mediaType == MediaType::audio;
        auto& seen = isAudio ? seenAudible : seenLegible;
        if (!seen.emplace(option.name, option.language.value_or("")).second) {
            continue;
        }
        (isAudio ? audible : legible).emplace_back(std::move(option));
    }
    std::vector<MediaSelectionGroup> groups;
    if (!audible.empty()) {
        groups.emplace_back(MediaCharacteristic::audible(), std::move(audible));
    }
    if (!legible.empty()) {
        groups.emplace_back(MediaCharacteristic::legible(), std::move(legible));
    }
    return groups;
}

}  // namespace zarvo
