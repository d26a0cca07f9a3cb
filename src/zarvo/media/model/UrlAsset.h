#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/MediaSelection.h"
#include "zarvo/media/model/MediaSelectionGroup.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// A media asset named by a URL: an HLS master playlist on a server, or a downloaded package on
// disk (a file URL), with the options it is opened with. Nothing is read until the asset is
// asked for its media selections (a player item made from it asks at once); the groups are
// known once the master playlist is read.
class MediaEngine;

class ZARVO_EXPORT UrlAsset : public std::enable_shared_from_this<UrlAsset> {
public:
    struct Options {
        // HTTP header fields sent with every request made for the asset.
        std::map<std::string, std::string> httpHeaderFields;

        bool operator==(const Options&) const = default;
    };
    using LoadCompletion = std::function<void(const std::optional<Error>&)>;

    // Made on the current media engine, which loads it.
    static std::shared_ptr<UrlAsset> make(Url url, Options options = {});

    UrlAsset(Url url, Options options);
    virtual ~UrlAsset() = default;
    UrlAsset(const UrlAsset&) = delete;
    UrlAsset& operator=(const UrlAsset&) = delete;

    const Url& url() const { return url_; }
    // The master playlist: the URL itself, or, for a directory on disk (a downloaded package),
    // the "master.m3u8" inside it.
    const Url& playlistUrl() const { return playlistUrl_; }
    // Whether playback may read `file`: only for an asset on disk, and only inside the folder
    // of its master playlist.
    bool mayReadFile(const Url& file) const;
    const Options& options() const { return options_; }
    const std::shared_ptr<AssetResourceLoader>& resourceLoader() const { return resourceLoader_; }

    // The group for `characteristic` (audible: the audio renditions; legible: subtitles and
    // closed captions), or nothing when the master has none or is not read yet.
    std::optional<MediaSelectionGroup> mediaSelectionGroup(
        const MediaCharacteristic& characteristic) const;
    // Every combination of one option per group (none for legible groups included), in
    // playlist order; a single empty selection when there are no groups.
    std::vector<MediaSelection> allMediaSelections() const;
    // The default choice of each group.
    MediaSelection preferredMediaSelection() const;

    // Starts reading the master playlist when nothing did yet, and calls `completion` on
    // `queue` once it is read (nothing) or could not be (its error); at once when that is
    // already decided.
    void loadMediaSelections(std::shared_ptr<DispatchQueue> queue, LoadCompletion completion);
    bool isLoaded() const;
    std::optional<Error> loadError() const;

    // Engine side: the master playlist was read (its groups) or failed.
    void finishLoading(const MediaEngineKey&, std::vector<MediaSelectionGroup> groups);
    void failLoading(const MediaEngineKey&, Error error);
    // Engine side: state the engine keeps with the asset (its loader on the resource server).
    std::shared_ptr<void> engineState(const MediaEngineKey&) const;
    void setEngineState(const MediaEngineKey&, std::shared_ptr<void> state);

private:
    void settle(std::vector<MediaSelectionGroup> groups, std::optional<Error> error);

    const Url url_;
    const Url playlistUrl_;
    std::weak_ptr<MediaEngine> engine_;  // the engine owns state that refers to its assets
    std::once_flag loadingStarted_;
    const Options options_;
    const std::shared_ptr<AssetResourceLoader> resourceLoader_;
    mutable std::mutex mutex_;
    bool loaded_ = false;
    std::optional<Error> loadError_;
    std::vector<MediaSelectionGroup> groups_;
    std::vector<std::pair<std::shared_ptr<DispatchQueue>, LoadCompletion>> waiting_;
    std::shared_ptr<void> engineState_;
};

}  // namespace zarvo
