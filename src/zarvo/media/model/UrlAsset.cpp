#include "zarvo/media/model/UrlAsset.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "zarvo/media/model/MediaEngine.h"

namespace zarvo {

std::shared_ptr<UrlAsset> UrlAsset::make(Url url, Options options) {
    auto asset = std::make_shared<UrlAsset>(std::move(url), std::move(options));
    asset->engine_ = MediaEngine::current();
    return asset;
}

namespace {

Url playlistOf(const Url& url) {
    std::error_code ignored;
    if (url.isFileUrl() && std::filesystem::is_directory(url.decodedPath(), ignored)) {
        return Url::fileUrl((std::filesystem::path(url.decodedPath()) / "master.m3u8").string());
    }
    return url;
}

}  // namespace

bool UrlAsset::mayReadFile(const Url& file) const {
    if (!playlistUrl_.isFileUrl() || !file.isFileUrl()) {
        return false;
    }
    namespace fs = std::filesystem;
    const fs::path root = fs::path(playlistUrl_.decodedPath()).parent_path().lexically_normal();
    const fs::path path = fs::path(file.decodedPath()).lexically_normal();
    auto [rootEnd, pathAt] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    return rootEnd == root.end();
}

UrlAsset::UrlAsset(Url url, Options options)
    : url_(std::move(url)),
      playlistUrl_(playlistOf(url_)),
      options_(std::move(options)),
      resourceLoader_(std::make_shared<AssetResourceLoader>()) {}

std::optional<MediaSelectionGroup> UrlAsset::mediaSelectionGroup(
    const MediaCharacteristic& characteristic) const {
    std::lock_guard lock(mutex_);
    for (const auto& group : groups_) {
        if (group.characteristic() == characteristic) {
            return group;
        }
    }
    return std::nullopt;
}

std::vector<MediaSelection> UrlAsset::allMediaSelections() const {
    std::vector<MediaSelectionGroup> groups;
    {
        std::lock_guard lock(mutex_);
        groups = groups_;
    }
    std::vector<MediaSelection> selections(1);
    for (const auto& group : groups) {
        std::vector<std::optional<MediaSelectionOption>> choices(group.options().begin(),
                                                                 group.options().end());
        if (group.allowsEmptySelection()) {
            choices.insert(choices.begin(), std::nullopt);
        }
        if (choices.empty()) {
            continue;
        }
        std::vector<MediaSelection> combined;
        for (const auto& selection : selections) {
            for (const auto& choice : choices) {
                MediaSelection next = selection;
                next.select(choice, group);
                combined.push_back(std::move(next));
            }
        }
        selections = std::move(combined);
    }
    return selections;
}

MediaSelection UrlAsset::preferredMediaSelection() const {
    std::lock_guard lock(mutex_);
    MediaSelection selection;
    for (const auto& group : groups_) {
        selection.select(group.defaultOption(), group);
    }
    return selection;
}

void UrlAsset::loadMediaSelections(std::shared_ptr<DispatchQueue> queue,
                                   LoadCompletion completion) {
    std::call_once(loadingStarted_, [this] {
        if (auto engine = engine_.lock()) {
            engine->loadAsset(shared_from_this());
        }
    });
    std::optional<Error> error;
    {
        std::lock_guard lock(mutex_);
        if (!loaded_) {
            waiting_.emplace_back(std::move(queue), std::move(completion));
            return;
        }
        error = loadError_;
    }
    queue->async([completion = std::move(completion), error] { completion(error); });
}

bool UrlAsset::isLoaded() const {
    std::lock_guard lock(mutex_);
    return loaded_;
}

std::optional<Error> UrlAsset::loadError() const {
    std::lock_guard lock(mutex_);
    return loadError_;
}

void UrlAsset::finishLoading(const MediaEngineKey&, std::vector<MediaSelectionGroup> groups) {
    settle(std::move(groups), std::nullopt);
}

void UrlAsset::failLoading(const MediaEngineKey&, Error error) {
    settle({}, std::move(error));
}

void UrlAsset::settle(std::vector<MediaSelectionGroup> groups, std::optional<Error> error) {
    std::vector<std::pair<std::shared_ptr<DispatchQueue>, LoadCompletion>> waiting;
    {
        std::lock_guard lock(mutex_);
        if (loaded_) {
            return;
        }
        loaded_ = true;
        groups_ = std::move(groups);
        loadError_ = error;
        waiting.swap(waiting_);
    }
    for (auto& [queue, completion] : waiting) {
        queue->async([completion = std::move(completion), error] { completion(error); });
    }
}

std::shared_ptr<void> UrlAsset::engineState(const MediaEngineKey&) const {
    std::lock_guard lock(mutex_);
    return engineState_;
}

void UrlAsset::setEngineState(const MediaEngineKey&, std::shared_ptr<void> state) {
    std::lock_guard lock(mutex_);
    engineState_ = std::move(state);
}

}  // namespace zarvo
