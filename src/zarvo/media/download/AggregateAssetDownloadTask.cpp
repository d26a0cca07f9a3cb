#include "zarvo/media/download/AggregateAssetDownloadTask.h"

#include <condition_variable>

#include "zarvo/media/download/AssetDownloadDelegate.h"
#include "zarvo/media/download/AssetDownloadUrlSession.h"
#include "zarvo/media/download/PackageDownloadRun.h"
#include "zarvo/media/download/PackageFileFetcher.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DurableFile.h"
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

void AggregateAssetDownloadTask::recordEnd(std::optional<Error> error) {
    state_ = State::completed;
    error_ = error;
    record_.outcome = std::move(error);
    persist(AssetDownloadStore::TaskState::ended);
}

void AggregateAssetDownloadTask::tellEnd(bool withLocation) {
    auto session = session_.lock();
    if (!session) {
        return;
    }
    auto task = shared_from_this();
    if (withLocation) {
        session->post([task, package = location()](AssetDownloadDelegate& delegate,
                                                   AssetDownloadUrlSession& session) {
            delegate.willDownloadTo(session, task, package);
        });
    }
    const auto error = this->error();
    if (!error) {
        for (const auto& selection : selections_) {
            session->post([task, selection](AssetDownloadDelegate& delegate,
                                            AssetDownloadUrlSession& session) {
                delegate.didCompleteFor(session, task, selection);
            });
        }
    }
    // Until its delegate heard the end, a later session hands the task back to tell it again.
    session->post([task, error](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
        delegate.didCompleteWithError(session, task, error);
        std::lock_guard lock(task->mutex_);
        if (task->record_.state == AssetDownloadStore::TaskState::ended) {
            task->persist(AssetDownloadStore::TaskState::completed);
        }
    });
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
                                          settings_.firstRetryDelay, settings_.longestRetryDelay,
                                          settings_.outageLimit, settings_.mayDownload};
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
        recordEnd(makeUrlError(UrlError::cancelled, record_.url));
        // What a cancelled package holds is not to be trusted by a later task.
        store_->forgetPackage(record_.package);
    }
    tellEnd(false);
}

void AggregateAssetDownloadTask::completeWithoutRunning(const Error& error) {
    {
        std::lock_guard lock(mutex_);
        recordEnd(error);
    }
    // Its process may have ended before the delegate had its package's location: it hears of
    // it again, so that the download can go on from that package.
    tellEnd(true);
}

void AggregateAssetDownloadTask::tellRecordedEnd() {
    {
        std::lock_guard lock(mutex_);
        state_ = State::completed;
        error_ = record_.outcome;
    }
    tellEnd(true);
}

void AggregateAssetDownloadTask::removePartialFiles() const {
    const auto package = [&] {
        std::lock_guard lock(mutex_);
        return packagePath();
    }();
    DurableFile::removeLeftovers(package);
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
        fetcher_.reset();
        recordEnd(error);
    }
    if (error) {
        removePartialFiles();
    }
    tellEnd(false);
}

std::optional<Error> AggregateAssetDownloadTask::download(PackageFileFetcher& fetcher) {
    const auto [record, package] = [&] {
        std::lock_guard lock(mutex_);
        return std::make_pair(record_, packagePath());
    }();
    auto session = session_.lock();
    auto task = shared_from_this();
    const MediaSelection selection = selections_.empty() ? MediaSelection() : selections_.front();
    PackageDownloadRun::Hooks hooks;
    hooks.located = [&, session, task, package = package] {
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
    };
    hooks.progressed = [session, task, selection](double seconds, double total, double duration) {
        if (!session || total <= 0) {
            return;
        }
        const double loaded = duration * std::min(1.0, seconds / total);
        session->post([=](AssetDownloadDelegate& delegate, AssetDownloadUrlSession& session) {
            delegate.didLoad(session, task, rangeOf(0, loaded), {rangeOf(0, loaded)},
                             rangeOf(0, duration), selection);
        });
    };
    hooks.loadKey = [&](const Url& key) {
        return loadKey(*asset_, key, fetcher);
    };
    return PackageDownloadRun(*store_, record, fetcher, settings_.filesInFlight, std::move(hooks))
        .run();
}

}  // namespace zarvo
