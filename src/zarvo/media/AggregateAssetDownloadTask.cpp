#include "zarvo/media/AggregateAssetDownloadTask.h"

#include <atomic>
#include <condition_variable>
#include <set>

#include "zarvo/media/AssetDownloadDelegate.h"
#include "zarvo/media/AssetDownloadUrlSession.h"
#include "zarvo/media/AssetResourceLoadingRequest.h"
#include "zarvo/media/HlsPackagePlan.h"
#include "zarvo/media/MediaError.h"
#include "zarvo/media/PackageFileFetcher.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/UrlError.h"

namespace zarvo {
namespace {

MediaTimeRange rangeOf(double start, double duration) {
    return {MediaTime::make(start, 600), MediaTime::make(duration, 600)};
}

// Waits for the resource loader's answer to a key, or for the fetcher to stop.
std::optional<Error> loadKey(UrlAsset& asset, const Url& url, PackageFileFetcher& fetcher) {
    struct Wait {
        std::mutex mutex;
        std::condition_variable changed;
        bool done = false;
        std::optional<Error> error;
    };
    auto wait = std::make_shared<Wait>();
    auto settle = [wait](std::optional<Error> error) {
        {
            std::lock_guard lock(wait->mutex);
            if (wait->done) {
                return;
            }
            wait->done = true;
            wait->error = std::move(error);
        }
        wait->changed.notify_all();
    };
    auto request = std::make_shared<AssetResourceLoadingRequest>(
        UrlRequest(url), true, true,
        [settle, url](const AssetResourceLoadingRequest::Outcome& outcome) {
            if (outcome.error) {
                settle(makeMediaError(MediaError::resourceLoadingFailed,
                                      "The resource loader failed to load " + url.absoluteString() +
                                          ": " + outcome.error->localizedDescription(),
                                      outcome.error));
                return;
            }
            settle(std::nullopt);
        });
    auto loader = asset.resourceLoader();
    loader->offer(request, false, [settle, url](bool accepted) {
        if (!accepted) {
            settle(makeMediaError(MediaError::resourceLoadingFailed,
                                  "The resource loader declined " + url.absoluteString() + "."));
        }
    });
    std::unique_lock lock(wait->mutex);
    while (
        !wait->changed.wait_for(lock, std::chrono::milliseconds(100), [&] { return wait->done; })) {
        if (fetcher.isStopped()) {
            lock.unlock();
            if (request->cancel()) {
                loader->notifyCancelled(request);
            }
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
    }
    return wait->error;
}

}  // namespace

AggregateAssetDownloadTask::AggregateAssetDownloadTask(
    Token, std::weak_ptr<AssetDownloadUrlSession> session,
    std::shared_ptr<AssetDownloadStore> store, AssetDownloadStore::TaskRecord record,
    std::shared_ptr<UrlAsset> asset, std::vector<MediaSelection> selections, Settings settings,
    std::optional<State> state)
    : session_(std::move(session)),
      store_(std::move(store)),
      asset_(std::move(asset)),
      selections_(std::move(selections)),
      settings_(std::move(settings)),
      record_(std::move(record)) {
    if (state) {
        state_ = *state;
    }
}

AggregateAssetDownloadTask::~AggregateAssetDownloadTask() {
    if (fetcher_) {
        fetcher_->stop();
    }
    finished_.push_back(std::move(thread_));
    for (auto& thread : finished_) {
        if (!thread.joinable()) {
            continue;
        }
        // The last owner may be the run itself.
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

std::int64_t AggregateAssetDownloadTask::taskIdentifier() const {
    std::lock_guard lock(mutex_);
    return record_.id;
}

std::string AggregateAssetDownloadTask::taskDescription() const {
    std::lock_guard lock(mutex_);
    return record_.description;
}

void AggregateAssetDownloadTask::setTaskDescription(std::string description) {
    std::lock_guard lock(mutex_);
    record_.description = std::move(description);
    store_->update(record_);
}

AggregateAssetDownloadTask::State AggregateAssetDownloadTask::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

std::optional<Error> AggregateAssetDownloadTask::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

std::filesystem::path AggregateAssetDownloadTask::packagePath() const {
    return AppDirectories::home() / record_.package;
}

Url AggregateAssetDownloadTask::location() const {
    std::lock_guard lock(mutex_);
    return Url::fileUrl(packagePath().string(), true);
}

void AggregateAssetDownloadTask::persist(AssetDownloadStore::TaskState state) {
    record_.state = state;
    store_->update(record_);
}

std::thread AggregateAssetDownloadTask::stopRun() {
    if (auto fetcher = std::exchange(fetcher_, nullptr)) {
        fetcher->stop();
    }
    return std::exchange(thread_, std::thread());
}

void AggregateAssetDownloadTask::resume() {
    std::vector<std::thread> stopped;
    {
        std::lock_guard lock(mutex_);
        if (state_ != State::suspended) {
            return;
        }
        stopped = std::move(finished_);
    }
    // A stopped run ends quickly (its transfers are cancelled); two runs never share a file.
    for (auto& thread : stopped) {
        if (thread.joinable()) {
            thread.join();
        }
    }
    std::lock_guard lock(mutex_);
    if (state_ != State::suspended) {
        return;
    }
    state_ = State::running;
    persist(AssetDownloadStore::TaskState::running);
    PackageFileFetcher::Settings fetching{asset_->options().httpHeaderFields,
                                          settings_.retryDelays};
    fetcher_ = std::make_shared<PackageFileFetcher>(std::move(fetching));
    thread_ = std::thread([self = shared_from_this(), fetcher = fetcher_] { self->run(fetcher); });
}

void AggregateAssetDownloadTask::suspend() {
    std::lock_guard lock(mutex_);
    if (state_ != State::running) {
        return;
    }
    state_ = State::suspended;
    persist(AssetDownloadStore::TaskState::suspended);
    finished_.push_back(stopRun());
}

void AggregateAssetDownloadTask::cancel() {
    std::vector<std::thread> stopped;
    {
        std::lock_guard lock(mutex_);
        if (state_ == State::canceling || state_ == State::completed) {
            return;
        }
        state_ = State::canceling;
        stopped = std::move(finished_);
        stopped.push_back(stopRun());
    }
    for (auto& thread : stopped) {
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) {
            thread.join();
        }
    }
    removePartialFiles();
    {
        std::lock_guard lock(mutex_);
        state_ = State::completed;
        error_ = makeUrlError(UrlError::cancelled, record_.url);
        persist(AssetDownloadStore::TaskState::completed);
    }
    if (auto session = session_.lock()) {
        session->post([task = shared_from_this(), error = error_](
                          AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
            delegate.didCompleteWithError(session, task, error);
        });
    }
}

void AggregateAssetDownloadTask::completeWithoutRunning(const Error& error) {
    const Url package = location();
    {
        std::lock_guard lock(mutex_);
        state_ = State::completed;
        error_ = error;
        persist(AssetDownloadStore::TaskState::completed);
    }
    if (auto session = session_.lock()) {
        // Its process may have ended before the delegate had its package's location: it hears
        // of it again, so that the download can go on from that package.
        auto task = shared_from_this();
        session->post(
            [task, package](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
                delegate.willDownloadTo(session, task, package);
            });
        session->post(
            [task, error](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
                delegate.didCompleteWithError(session, task, error);
            });
    }
}

void AggregateAssetDownloadTask::removePartialFiles() const {
    std::error_code error;
    const auto package = [&] {
        std::lock_guard lock(mutex_);
        return packagePath();
    }();
    for (auto it = std::filesystem::recursive_directory_iterator(package, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        if (it->path().extension() == ".part") {
            std::error_code ignored;
            std::filesystem::remove(it->path(), ignored);
        }
    }
}

bool AggregateAssetDownloadTask::waitUntilMayDownload(PackageFileFetcher& fetcher) const {
    while (settings_.mayDownload && !settings_.mayDownload()) {
        if (!fetcher.wait(0.25)) {
            return false;
        }
    }
    return true;
}

void AggregateAssetDownloadTask::run(std::shared_ptr<PackageFileFetcher> fetcher) {
    auto error = download(*fetcher);
    if (fetcher->isStopped()) {
        return;  // suspended or cancelled: they tell
    }
    finish(std::move(error));
}

void AggregateAssetDownloadTask::finish(std::optional<Error> error) {
    {
        std::lock_guard lock(mutex_);
        if (state_ != State::running) {
            return;
        }
        state_ = State::completed;
        error_ = error;
        fetcher_.reset();
        persist(AssetDownloadStore::TaskState::completed);
    }
    if (error) {
        removePartialFiles();
    }
    auto session = session_.lock();
    if (!session) {
        return;
    }
    auto task = shared_from_this();
    if (!error) {
        for (const auto& selection : selections_) {
            session->post([task, selection](AssetDownloadDelegate& delegate,
                                            AssetDownloadUrlSession& session) {
                delegate.didCompleteFor(session, task, selection);
            });
        }
    }
    session->post([task, error](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
        delegate.didCompleteWithError(session, task, error);
    });
}

std::optional<Error> AggregateAssetDownloadTask::download(PackageFileFetcher& fetcher) {
    AssetDownloadStore::TaskRecord record;
    std::filesystem::path package;
    {
        std::lock_guard lock(mutex_);
        record = record_;
        package = packagePath();
    }
    if (!waitUntilMayDownload(fetcher)) {
        return makeUrlError(UrlError::cancelled, record.url);
    }
    auto planned =
        HlsPackagePlan::make(*Url::parse(record.url), record.renditions, record.minimumBitrate,
                             [&](const Url& url) { return fetcher.fetchText(url); });
    if (auto* error = std::get_if<Error>(&planned)) {
        return *error;
    }
    const auto& plan = std::get<HlsPackagePlan>(planned);
    std::set<std::filesystem::path> folders;
    for (const auto& playlist : plan.playlists) {
        folders.insert((package / playlist.path).parent_path());
    }
    for (const auto& file : plan.files) {
        folders.insert((package / file.path).parent_path());
    }
    for (const auto& folder : folders) {
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        if (error) {
            return makeMediaError(MediaError::writeFailed,
                                  "Could not make " + package.string() + ": " + error.message());
        }
    }
    auto session = session_.lock();
    auto task = shared_from_this();
    const bool announce = [&] {
        std::lock_guard lock(mutex_);
        return !std::exchange(announcedLocation_, true);
    }();
    if (announce && session) {
        session->post([task, location = Url::fileUrl(package.string(), true)](
                          AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
            delegate.willDownloadTo(session, task, location);
        });
    }
    for (const auto& key : plan.loaderKeys) {
        if (auto error = loadKey(*asset_, key, fetcher)) {
            return error;
        }
    }

    double total = 0;
    double done = 0;  // media seconds on disk
    std::mutex progressMutex;
    std::vector<const HlsPackagePlan::File*> missing;
    for (const auto& file : plan.files) {
        total += file.mediaSeconds;
        std::error_code ignored;
        if (std::filesystem::exists(package / file.path, ignored)) {
            done += file.mediaSeconds;
            store_->addFile(record.id, file.path);
        } else {
            missing.push_back(&file);
        }
    }
    const MediaSelection selection = selections_.empty() ? MediaSelection() : selections_.front();
    auto reportProgress = [&, session, task](double seconds) {
        if (!session || total <= 0) {
            return;
        }
        const double loaded = plan.duration * std::min(1.0, seconds / total);
        session->post([=](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
            delegate.didLoad(session, task, rangeOf(0, loaded), {rangeOf(0, loaded)},
                             rangeOf(0, plan.duration), selection);
        });
    };
    if (done > 0) {
        reportProgress(done);
    }

    std::atomic<std::size_t> next{0};
    std::mutex failureMutex;
    std::optional<Error> failure;
    std::atomic<bool> failed{false};
    auto work = [&] {
        while (!failed && !fetcher.isStopped()) {
            const std::size_t index = next++;
            if (index >= missing.size()) {
                return;
            }
            if (!waitUntilMayDownload(fetcher)) {
                return;
            }
            const auto& file = *missing[index];
            auto fetched =
                fetcher.fetchFile(file.url, file.range, package / file.path, file.maximumLength);
            if (auto* error = std::get_if<Error>(&fetched)) {
                if (!fetcher.isStopped()) {
                    std::lock_guard lock(failureMutex);
                    if (!failure) {
                        failure = *error;
                    }
                    failed = true;
                }
                return;
            }
            store_->addFile(record.id, file.path);
            // Progress is posted in the order it grows.
            std::lock_guard lock(progressMutex);
            done += file.mediaSeconds;
            reportProgress(done);
        }
    };
    std::vector<std::thread> workers;
    const std::size_t count =
        std::max<std::size_t>(1, std::min(settings_.filesInFlight, missing.size()));
    for (std::size_t i = 1; i < count; ++i) {
        workers.emplace_back(work);
    }
    work();
    for (auto& worker : workers) {
        worker.join();
    }
    if (failure) {
        return failure;
    }
    if (fetcher.isStopped()) {
        return makeUrlError(UrlError::cancelled, record.url);
    }
    for (const auto& playlist : plan.playlists) {
        if (!DataFile::writeAtomically(package / playlist.path, playlist.text,
                                       std::filesystem::perms(0644))) {
            return makeMediaError(MediaError::writeFailed,
                                  "Could not write " + (package / playlist.path).string() + ".");
        }
    }
    return std::nullopt;
}

}  // namespace zarvo
