#include "zarvo/media/download/PackageDownloadRun.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "zarvo/media/download/PackageFileFetcher.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DurableFile.h"
#include "zarvo/platform/UrlError.h"

namespace zarvo {

namespace fs = std::filesystem;

PackageDownloadRun::PackageDownloadRun(AssetDownloadStore& store,
                                       AssetDownloadStore::TaskRecord record,
                                       PackageFileFetcher& fetcher, std::size_t filesInFlight,
                                       Hooks hooks)
    : store_(store),
      record_(std::move(record)),
      package_(AppDirectories::home() / record_.package),
      fetcher_(fetcher),
      filesInFlight_(std::max<std::size_t>(1, filesInFlight)),
      hooks_(std::move(hooks)) {}

std::optional<Error> PackageDownloadRun::recordFailure(const std::string& what) const {
    return makeMediaError(MediaError::writeFailed,
                          "Could not record " + what + ": " +
                              store_.lastWriteError().value_or("the records refused it") + ".");
}

std::variant<HlsPackagePlan, Error> PackageDownloadRun::plan() {
    if (auto saved = store_.plan(record_.package)) {
        return std::move(*saved);
    }
    auto made =
        HlsPackagePlan::make(*Url::parse(record_.url), record_.renditions, record_.minimumBitrate,
                             [&](const Url& url) { return fetcher_.fetchText(url); });
    if (auto* plan = std::get_if<HlsPackagePlan>(&made);
        plan && !store_.savePlan(record_.package, *plan)) {
        return *recordFailure("the plan of " + package_.string());
    }
    return made;
}

std::optional<Error> PackageDownloadRun::makeFolders(const HlsPackagePlan& plan) const {
    std::set<fs::path> folders{package_};
    for (const auto& playlist : plan.playlists) {
        folders.insert((package_ / playlist.path).parent_path());
    }
    for (const auto& file : plan.files) {
        folders.insert((package_ / file.path).parent_path());
    }
    for (const auto& folder : folders) {
        if (auto error = AppDirectories::makeFolder(folder)) {
            return makeMediaError(MediaError::writeFailed,
                                  "Could not make " + folder.string() + ": " + error.message());
        }
    }
    return std::nullopt;
}

std::optional<Error> PackageDownloadRun::run() {
    auto planned = plan();
    if (auto* error = std::get_if<Error>(&planned)) {
        return *error;
    }
    const auto& plan = std::get<HlsPackagePlan>(planned);
    if (auto error = makeFolders(plan)) {
        return error;
    }
    // What a killed process was writing.
    DurableFile::removeLeftovers(package_);
    hooks_.located();
    for (const auto& key : plan.loaderKeys) {
        if (auto error = hooks_.loadKey(key)) {
            return error;
        }
    }
    if (auto error = fetchMissing(plan)) {
        return error;
    }
    return writePlaylists(plan);
}

std::optional<Error> PackageDownloadRun::fetchMissing(const HlsPackagePlan& plan) {
    const auto recorded = store_.files(record_.package);
    double total = 0;
    double done = 0;  // media seconds on disk
    std::vector<const HlsPackagePlan::File*> missing;
    for (const auto& file : plan.files) {
        total += file.mediaSeconds;
        std::optional<std::int64_t> expected;
        if (file.range) {
            expected = file.range->length;
        } else if (auto found = recorded.find(file.path); found != recorded.end()) {
            expected = found->second;
        }
        std::error_code error;
        const auto size = fs::file_size(package_ / file.path, error);
        if (!error && expected && static_cast<std::int64_t>(size) == *expected) {
            done += file.mediaSeconds;
        } else {
            missing.push_back(&file);
        }
    }
    std::mutex mutex;  // over done, failure and the order of progress reports
    if (done > 0) {
        hooks_.progressed(done, total, plan.duration);
    }
    std::atomic<std::size_t> next{0};
    std::optional<Error> failure;
    std::atomic<bool> failed{false};
    auto fail = [&](Error error) {
        {
            std::lock_guard lock(mutex);
            if (!failure) {
                failure = std::move(error);
            }
        }
        // The files in flight stop too: on a full disk, the first refused write is the last.
        if (!failed.exchange(true)) {
            fetcher_.interrupt();
        }
    };
    auto work = [&] {
        while (!failed && !fetcher_.isStopped()) {
            const std::size_t index = next++;
            if (index >= missing.size()) {
                return;
            }
            const auto& file = *missing[index];
            // Its length is recorded before it takes its place: a file in place without the
            // length the records give it is fetched again.
            auto fetched = fetcher_.fetchFile(
                file.url, file.range, package_ / file.path, file.maximumLength,
                [&](std::int64_t length) {
                    return store_.addFile(record_.package, file.path, length)
                               ? std::nullopt
                               : recordFailure("the file " + (package_ / file.path).string());
                });
            if (auto* error = std::get_if<Error>(&fetched)) {
                if (!fetcher_.isStopped() && !failed) {
                    fail(*error);
                }
                return;
            }
            std::lock_guard lock(mutex);
            done += file.mediaSeconds;
            hooks_.progressed(done, total, plan.duration);
        }
    };
    std::vector<std::thread> workers;
    for (std::size_t i = 1; i < std::min(filesInFlight_, missing.size()); ++i) {
        workers.emplace_back(work);
    }
    work();
    for (auto& worker : workers) {
        worker.join();
    }
    if (failure) {
        return failure;
    }
    if (fetcher_.isStopped()) {
        return makeUrlError(UrlError::cancelled, record_.url);
    }
    return std::nullopt;
}

std::optional<Error> PackageDownloadRun::writePlaylists(const HlsPackagePlan& plan) const {
    for (const auto& playlist : plan.playlists) {
        const fs::path path = package_ / playlist.path;
        if (auto error = DurableFile::writeWhole(path, playlist.text.data(), playlist.text.size(),
                                                 fs::perms(0644))) {
            return makeMediaError(MediaError::writeFailed, "Could not write " + path.string() +
                                                               ": " + error.message() + ".");
        }
    }
    return std::nullopt;
}

}  // namespace zarvo
