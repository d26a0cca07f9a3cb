#include "zarvo/media/download/AssetDownloadUrlSession.h"

#include <algorithm>
#include <arpa/inet.h>
#include <gio/gio.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/Uuid.h"

namespace zarvo {
namespace {

// Files and this host's own servers are reached without the network that GLib's monitor
// describes (the one with the default route): they need neither it up nor unmetered.
bool needsNoNetwork(const Url& url) {
    if (url.isFileUrl()) {
        return true;
    }
    const auto host = url.host().value_or("");
    in_addr v4{};
    if (::inet_pton(AF_INET, host.c_str(), &v4) == 1) {
        return (ntohl(v4.s_addr) >> 24) == 127;
    }
    return host == "localhost" || host == "::1" || host == "[::1]";
}

bool glibSaysMetered(const Url& url) {
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    return !needsNoNetwork(url) && monitor != nullptr &&
           g_network_monitor_get_network_metered(monitor);
}

bool glibSaysAvailable(const Url& url) {
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    return needsNoNetwork(url) || monitor == nullptr ||
           g_network_monitor_get_network_available(monitor);
}

// A directory name made of the title's letters and digits, and a unique ending.
std::string packageName(const std::string& title) {
    std::string name;
    for (char c : title) {
        const bool plain =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (plain || c == '-' || c == '_') {
            name += c;
        } else if (!name.empty() && name.back() != '_') {
            name += '_';
        }
        if (name.size() >= 48) {
            break;
        }
    }
    return (name.empty() ? "Asset" : name) + "_" + Uuid().uuidString().substr(0, 8) + ".movpkg";
}

// The package a file URL names, relative to the home: the directory itself, or the one of its
// master playlist.
std::optional<std::string> packageOf(const Url& url) {
    if (!url.isFileUrl()) {
        return std::nullopt;
    }
    std::filesystem::path path = url.decodedPath();
    if (path.filename() == HlsPackagePlan::masterPath) {
        path = path.parent_path();
    }
    std::error_code ignored;
    const auto home = std::filesystem::weakly_canonical(AppDirectories::home(), ignored);
    const auto relative = std::filesystem::weakly_canonical(path, ignored).lexically_relative(home);
    if (relative.empty() || relative.native().starts_with("..")) {
        return std::nullopt;
    }
    return relative.string();
}

}  // namespace

std::shared_ptr<AssetDownloadUrlSession> AssetDownloadUrlSession::make(
    UrlSessionConfiguration configuration, std::weak_ptr<AssetDownloadDelegate> delegate,
    std::shared_ptr<DispatchQueue> delegateQueue, Settings settings) {
    if (!configuration.identifier) {
        return nullptr;
    }
    if (!settings.store) {
        settings.store = AssetDownloadStore::open();
    }
    if (!settings.store) {
        return nullptr;
    }
    auto session = std::make_shared<AssetDownloadUrlSession>(
        Token(), std::move(configuration), std::move(delegate), std::move(delegateQueue),
        std::move(settings));
    session->restoreTasks();
    return session;
}

AssetDownloadUrlSession::AssetDownloadUrlSession(Token, UrlSessionConfiguration configuration,
                                                 std::weak_ptr<AssetDownloadDelegate> delegate,
                                                 std::shared_ptr<DispatchQueue> delegateQueue,
                                                 Settings settings)
    : configuration_(std::move(configuration)),
      allowsCellularAccess_(configuration_.allowsCellularAccess),
      delegate_(std::move(delegate)),
      delegateQueue_(std::move(delegateQueue)),
      settings_(std::move(settings)),
      store_(settings_.store) {}

UrlSessionConfiguration AssetDownloadUrlSession::configuration() const {
    auto configuration = configuration_;
    configuration.allowsCellularAccess = allowsCellularAccess_;
    return configuration;
}

void AssetDownloadUrlSession::setAllowsCellularAccess(bool allows) {
    allowsCellularAccess_ = allows;
}

AggregateAssetDownloadTask::Settings AssetDownloadUrlSession::taskSettings() const {
    auto settings = settings_.tasks;
    settings.mayDownload = [weakSelf = weak_from_this(), metered = settings_.isNetworkMetered,
                            available = settings_.isNetworkAvailable](const Url& url) {
        auto self = weakSelf.lock();
        if (!self) {
            return true;
        }
        const bool up = available ? available() : glibSaysAvailable(url);
        const bool unmetered = metered ? !metered() : !glibSaysMetered(url);
        return up && (self->allowsCellularAccess_ || unmetered);
    };
    return settings;
}

void AssetDownloadUrlSession::restoreTasks() {
    for (auto& record : store_->unfinishedTasks(*configuration_.identifier)) {
        auto asset = UrlAsset::make(*Url::parse(record.url), UrlAsset::Options{record.headers});
        const auto state = record.state;
        auto task = std::make_shared<AggregateAssetDownloadTask>(
            AggregateAssetDownloadTask::Token(), weak_from_this(), store_, std::move(record),
            std::move(asset), std::vector<MediaSelection>{}, taskSettings(),
            AggregateAssetDownloadTask::State::suspended);
        std::lock_guard lock(mutex_);
        switch (state) {
            case AssetDownloadStore::TaskState::running:
                cutOff_.push_back(std::move(task));
                break;
            case AssetDownloadStore::TaskState::ended:
                ended_.push_back(std::move(task));
                break;
            default:
                tasks_.push_back(std::move(task));
        }
    }
}

std::shared_ptr<AggregateAssetDownloadTask> AssetDownloadUrlSession::makeAggregateAssetDownloadTask(
    const std::shared_ptr<UrlAsset>& asset, const std::vector<MediaSelection>& mediaSelections,
    const std::string& assetTitle, const std::optional<Data>& assetArtworkData,
    const TaskOptions& options) {
    (void)assetArtworkData;  // packages carry no artwork
    if (!asset) {
        return nullptr;
    }
    AssetDownloadStore::TaskRecord record;
    record.session = *configuration_.identifier;
    record.title = assetTitle;
    record.url = asset->url().absoluteString();
    record.headers = asset->options().httpHeaderFields;
    record.minimumBitrate = options.minimumRequiredMediaBitrate;
    if (auto package = packageOf(asset->url())) {
        // The package's own URL: continue it, from where its last task downloaded.
        auto previous = store_->lastTaskFor(*package);
        if (!previous) {
            return nullptr;
        }
        record.url = previous->url;
        record.headers = previous->headers;
        // The new task takes the place of the package's last one, which its insertion completes:
        // it keeps that task's description until it is given its own, so that a process that
        // ends in between leaves a task its owner still knows.
        record.description = previous->description;
        record.renditions = previous->renditions;
        record.minimumBitrate = previous->minimumBitrate;
        record.package = *package;
    } else {
        if (asset->url().isFileUrl()) {
            return nullptr;
        }
        if (!asset->isLoaded() && !mediaSelections.empty()) {
            // The master is not read yet, so its selections are not known: all of them.
            record.renditions.push_back(HlsPackagePlan::Rendition::every());
        }
        for (const auto& selection : mediaSelections) {
            for (const auto& characteristic :
                 {MediaCharacteristic::audible(), MediaCharacteristic::legible()}) {
                auto group = asset->mediaSelectionGroup(characteristic);
                auto option = group ? selection.selectedMediaOption(*group) : std::nullopt;
                if (!option || !option->rendition().hasUri) {
                    continue;
                }
                const auto& rendition = option->rendition();
                HlsPackagePlan::Rendition wanted{
                    option->mediaType() == MediaSelectionOption::MediaType::audio ? "AUDIO"
                                                                                  : "SUBTITLES",
                    rendition.groupId, rendition.name, rendition.language};
                if (std::find(record.renditions.begin(), record.renditions.end(), wanted) ==
                    record.renditions.end()) {
                    record.renditions.push_back(std::move(wanted));
                }
            }
        }
        const auto directory = AppDirectories::library() / "com.zarvo.downloads" /
                               *configuration_.identifier / packageName(assetTitle);
        record.package = directory.lexically_relative(AppDirectories::home()).string();
    }
    record.state = AssetDownloadStore::TaskState::suspended;
    std::lock_guard lock(mutex_);
    if (invalidated_ || !store_->insert(record)) {
        return nullptr;
    }
    auto task = std::make_shared<AggregateAssetDownloadTask>(
        AggregateAssetDownloadTask::Token(), weak_from_this(), store_, std::move(record), asset,
        mediaSelections, taskSettings());
    tasks_.push_back(task);
    return task;
}

void AssetDownloadUrlSession::getAllTasks(
    std::function<void(std::vector<std::shared_ptr<AggregateAssetDownloadTask>>)> completion) {
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> tasks;
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> cutOff;
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> ended;
    {
        std::lock_guard lock(mutex_);
        std::erase_if(tasks_, [](const auto& task) {
            return task->state() == AggregateAssetDownloadTask::State::completed;
        });
        tasks = tasks_;
        cutOff = std::exchange(cutOff_, {});
        ended = std::exchange(ended_, {});
    }
    tasks.insert(tasks.end(), cutOff.begin(), cutOff.end());
    tasks.insert(tasks.end(), ended.begin(), ended.end());
    delegateQueue_->async([completion = std::move(completion), tasks] { completion(tasks); });
    for (const auto& task : ended) {
        task->tellRecordedEnd();
    }
    for (const auto& task : cutOff) {
        const Error cancelled =
            makeUrlError(UrlError::cancelled, task->urlAsset()->url().absoluteString());
        Error::UserInfo info = cancelled.userInfo();
        info[backgroundTaskCancelledReasonKey] = "0";
        task->completeWithoutRunning(Error(urlErrorDomain, cancelled.code(), std::move(info)));
    }
}

void AssetDownloadUrlSession::invalidateAndCancel() {
    std::vector<std::shared_ptr<AggregateAssetDownloadTask>> tasks;
    {
        std::lock_guard lock(mutex_);
        invalidated_ = true;
        tasks = std::exchange(tasks_, {});
    }
    for (const auto& task : tasks) {
        task->cancel();
    }
}

void AssetDownloadUrlSession::post(
    std::function<void(AssetDownloadDelegate&, AssetDownloadUrlSession&)> call) {
    delegateQueue_->async(
        [weakSelf = weak_from_this(), delegate = delegate_, call = std::move(call)] {
            auto self = weakSelf.lock();
            auto strong = delegate.lock();
            if (self && strong) {
                call(*strong, *self);
            }
        });
}

}  // namespace zarvo
