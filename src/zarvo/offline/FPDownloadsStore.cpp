#include "zarvo/offline/FPDownloadsStore.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>

#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/Log.h"
#include "zarvo/platform/Uuid.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

// Holds the store's semaphore for a scope.
class SemaphoreHold {
public:
    explicit SemaphoreHold(DispatchSemaphore& semaphore) : semaphore_(semaphore) {
        semaphore_.wait();
    }
    ~SemaphoreHold() { semaphore_.signal(); }
    SemaphoreHold(const SemaphoreHold&) = delete;
    SemaphoreHold& operator=(const SemaphoreHold&) = delete;

private:
    DispatchSemaphore& semaphore_;
};

std::string newDownloadId() {
    std::string id = Uuid().uuidString();
    id.erase(std::remove(id.begin(), id.end(), '-'), id.end());
    return id;
}

}  // namespace

FPDownloadsStore::FPDownloadsStore() : FPDownloadsStore(UserDefaults::standard()) {}

FPDownloadsStore::FPDownloadsStore(std::shared_ptr<UserDefaults> userDefaults)
    : userDefaults_(std::move(userDefaults)) {}

std::shared_ptr<ZMOfflineDownload> FPDownloadsStore::findFirstWithId(const std::string& id) {
    SemaphoreHold hold(semaphore_);
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    for (const auto& download : *downloadsCache_) {
        if (download->id() == id) {
            return download;
        }
    }
    return nullptr;
}

std::shared_ptr<ZMOfflineDownload> FPDownloadsStore::findFirstWithState(
    ZMOfflineDownloadState state) {
    SemaphoreHold hold(semaphore_);
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    for (const auto& download : *downloadsCache_) {
        if (download->state() == state) {
            return download;
        }
    }
    return nullptr;
}

ZMOfflineDownload::List FPDownloadsStore::getAllDownloads() {
    SemaphoreHold hold(semaphore_);
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    return *downloadsCache_;
}

std::shared_ptr<ZMOfflineDownload> FPDownloadsStore::createWaitingDownload(
    const std::string& title, const Url& hlsUrl, const std::optional<Url>& fpsCertUrl,
    const std::optional<Url>& licenseUrl, const std::optional<std::vector<std::string>>& audioIds,
    const std::optional<std::vector<std::string>>& subtitlesIds,
    std::optional<std::int64_t> minBitrate, const std::map<std::string, std::string>& headers) {
    auto download = std::make_shared<ZMOfflineDownload>(
        newDownloadId(), title, ZMOfflineDownloadState::waiting, hlsUrl, std::nullopt, licenseUrl,
        std::vector<UrlQueryItem>{{"persistent", "true"}}, fpsCertUrl, audioIds, subtitlesIds,
        minBitrate.value_or(0), headers, 0.0);

    SemaphoreHold hold(semaphore_);
    std::lock_guard lock(mutex_);
    if (!downloadsCache_) {
        downloadsCache_.emplace();
    }
    downloadsCache_->push_back(download);
    save();
    return download;
}

void FPDownloadsStore::update(const std::shared_ptr<ZMOfflineDownload>& /*download*/) {
    std::lock_guard lock(mutex_);
    save();
}

void FPDownloadsStore::deleteDownloadWithId(const std::string& id) {
    SemaphoreHold hold(semaphore_);
    std::shared_ptr<ZMOfflineDownload> removed;
    {
        std::lock_guard lock(mutex_);
        loadIfNeeded();
        auto found = std::find_if(downloadsCache_->begin(), downloadsCache_->end(),
                                  [&](const auto& download) { return download->id() == id; });
        if (found == downloadsCache_->end()) {
            return;
        }
        removed = *found;
        std::erase_if(*downloadsCache_, [&](const auto& download) { return download->id() == id; });
        save();
    }
    if (std::shared_ptr<UrlAsset> package = removed->offlineUrlAsset()) {
        removePackage(*package);
    }
}

void FPDownloadsStore::loadIfNeeded() {
    if (downloadsCache_) {
        return;
    }
    std::optional<ZMOfflineDownload::List> downloads;
    if (userDefaults_) {
        std::optional<std::string> text = userDefaults_->string(DownloadsJsonKey);
        downloads = OfflineDownloadJson::decodeList(text.value_or("[]"));
        if (!downloads || (!text && userDefaults_->hasValue(DownloadsJsonKey))) {
            pendingBackup_ = unreadableStoredValue();
        }
        storedValueChecked_ = true;
    }
    downloadsCache_ = std::move(downloads).value_or(ZMOfflineDownload::List{});
}

void FPDownloadsStore::save() {
    if (!userDefaults_) {
        return;
    }
    if (!storedValueChecked_) {
        // The list was never read (a download was created first): a stored value that is not
        // a readable list is still kept before it is replaced.
        pendingBackup_ = unreadableStoredValue();
        storedValueChecked_ = true;
    }
    static const ZMOfflineDownload::List noDownloads;
    OfflineDownloadJson::EncodedList encoded = OfflineDownloadJson::encodeList(
        downloadsCache_ ? *downloadsCache_ : noDownloads, lastSavedSize_ + lastSavedSize_ / 8);
    if (encoded.unencodedIds != unencodedIds_) {
        for (const auto& id : encoded.unencodedIds) {
            logDiagnostic("FPDownloadsStore", "download " + id +
                                                  " has a value JSON cannot hold; its last "
                                                  "saved form is kept");
        }
        unencodedIds_ = std::move(encoded.unencodedIds);
    }
    lastSavedSize_ = encoded.text.size();
    if (pendingBackup_) {
        bool kept =
            pendingBackup_->isString
                ? userDefaults_->setString(UnreadableDownloadsJsonKey, pendingBackup_->bytes)
                : userDefaults_->setData(UnreadableDownloadsJsonKey, pendingBackup_->bytes);
        if (!kept) {
            // Never replace a value that could not be kept.
            saveFailed();
            return;
        }
        logDiagnostic("FPDownloadsStore", std::string("the stored downloads could not be read; "
                                                      "kept under ") +
                                              UnreadableDownloadsJsonKey);
        pendingBackup_.reset();
    }
    if (!userDefaults_->setString(DownloadsJsonKey, encoded.text)) {
        saveFailed();
        return;
    }
    if (lastSaveError_) {
        logDiagnostic("FPDownloadsStore", "the downloads are saved again");
        lastSaveError_.reset();
    }
}

void FPDownloadsStore::saveFailed() {
    if (!lastSaveError_) {
        logDiagnostic("FPDownloadsStore",
                      "saving the downloads failed; the stored list is left as it was and is "
                      "written again at the next save");
    }
    lastSaveError_ =
        Error::withDescription(saveErrorDomain, saveErrorCode, "The downloads could not be saved.");
}

std::optional<Error> FPDownloadsStore::lastSaveError() const {
    std::lock_guard lock(mutex_);
    return lastSaveError_;
}

std::optional<FPDownloadsStore::UnreadableValue> FPDownloadsStore::unreadableStoredValue() const {
    if (std::optional<std::string> text = userDefaults_->string(DownloadsJsonKey)) {
        if (OfflineDownloadJson::decodeList(*text)) {
            return std::nullopt;
        }
        return UnreadableValue{std::move(*text), true};
    }
    // A value of another type (data) is not a list either.
    if (userDefaults_->hasValue(DownloadsJsonKey)) {
        if (std::optional<Data> bytes = userDefaults_->data(DownloadsJsonKey)) {
            return UnreadableValue{std::move(*bytes), false};
        }
    }
    return std::nullopt;
}

void FPDownloadsStore::removePackage(const UrlAsset& package) {
    const Url& url = package.url();
    fs::path path = url.decodedPath();
    if (!url.isFileUrl() || !AppDirectories::isInsideHome(path)) {
        logDiagnostic("FPDownloadsStore", "not removing " + url.absoluteString() +
                                              ": it lies outside the application home");
        return;
    }
    std::error_code error;
    if (!fs::exists(fs::symlink_status(path, error))) {
        error = std::make_error_code(std::errc::no_such_file_or_directory);
    } else {
        fs::remove_all(path, error);
    }
    if (error) {
        std::cout << "FPDownloadsStore:FileManager.default.removeItem " << url.absoluteString()
                  << " error: " << error.message() << std::endl;
    }
}

}  // namespace zarvo
