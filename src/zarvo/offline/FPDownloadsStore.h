#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/offline/FPDownloadsStoreProtocol.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UserDefaults.h"

namespace zarvo {

/// The downloads list, kept in memory and persisted as one JSON array text under "DownloadsJson"
/// in the user defaults. The list is read on the first find, list or delete; every change
/// writes the whole list.
///
/// A stored value that cannot be read gives an empty list; before the next save replaces it,
/// it is kept under "DownloadsJson.unreadable". Deleting a download removes its package only
/// when the package lies inside the application home.
///
/// A save that cannot be written leaves the stored value as it was, is logged and kept as
/// lastSaveError(), and is written again, whole, by the next save.
///
/// Safe to use from any thread. Make one store per application home and share it: each store
/// keeps its own copy of the list and writes it whole, so two stores (in one process or in
/// two) overwrite each other's changes.
class ZARVO_EXPORT FPDownloadsStore : public FPDownloadsStoreProtocol {
public:
    /// The user-defaults key of the list: "DownloadsJson".
    static constexpr const char* DownloadsJsonKey = "DownloadsJson";
    /// Where an unreadable stored list is kept: "DownloadsJson.unreadable".
    static constexpr const char* UnreadableDownloadsJsonKey = "DownloadsJson.unreadable";
    /// The error of a save that could not be written (the platform's file-write error).
    static constexpr const char* saveErrorDomain = "NSCocoaErrorDomain";
    /// The code of that error: 512.
    static constexpr long saveErrorCode = 512;

    /// A store on the standard user defaults of the current application home.
    FPDownloadsStore();
    /// A store on `userDefaults`; without any (nullptr), the list lives in memory only.
    explicit FPDownloadsStore(std::shared_ptr<UserDefaults> userDefaults);
    FPDownloadsStore(const FPDownloadsStore&) = delete;
    FPDownloadsStore& operator=(const FPDownloadsStore&) = delete;

    /// The first download with this id, or nullptr.
    std::shared_ptr<ZMOfflineDownload> findFirstWithId(const std::string& id) override;
    /// The first (earliest created) download in this state, or nullptr.
    std::shared_ptr<ZMOfflineDownload> findFirstWithState(ZMOfflineDownloadState state) override;
    /// Every download, earliest created first.
    ZMOfflineDownload::List getAllDownloads() override;
    /// Adds a new waiting download (a fresh id, "persistent=true" for its licence requests) and
    /// saves the list. Does not read the stored list first: when nothing has read it in this
    /// store yet, the saved list holds only the new download, so read the list (find, list or
    /// delete) before creating the first download in a new store.
    std::shared_ptr<ZMOfflineDownload> createWaitingDownload(
        const std::string& title, const Url& hlsUrl, const std::optional<Url>& fpsCertUrl,
        const std::optional<Url>& licenseUrl,
        const std::optional<std::vector<std::string>>& audioIds,
        const std::optional<std::vector<std::string>>& subtitlesIds,
        std::optional<std::int64_t> minBitrate,
        const std::map<std::string, std::string>& headers) override;
    /// Saves the whole list without waiting on the semaphore, so progress reports never queue
    /// behind a delete.
    void update(const std::shared_ptr<ZMOfflineDownload>& download) override;
    /// Removes the download's record and saves the list, then removes its package when the
    /// package lies inside the application home (its key directory stays).
    void deleteDownloadWithId(const std::string& id) override;

    /// Why the last save was not written; nothing once a save has succeeded.
    std::optional<Error> lastSaveError() const;

private:
    // A stored value that did not decode, waiting to be kept before it is overwritten.
    struct UnreadableValue {
        Data bytes;
        bool isString;
    };

    // Both run with mutex_ held.
    void loadIfNeeded();
    void save();
    void saveFailed();
    std::optional<UnreadableValue> unreadableStoredValue() const;
    static void removePackage(const UrlAsset& package);

    const std::shared_ptr<UserDefaults> userDefaults_;
    // Serialises the operations other than update(), as callers on any thread expect.
    DispatchSemaphore semaphore_{1};
    // Guards downloadsCache_ and the save state, and keeps saves in order, so that update()
    // (which skips the semaphore) never races another operation.
    mutable std::mutex mutex_;
    std::optional<ZMOfflineDownload::List> downloadsCache_;
    // Whether the stored value has been looked at (by a load or the first save).
    bool storedValueChecked_ = false;
    std::optional<UnreadableValue> pendingBackup_;
    std::size_t lastSavedSize_ = 0;
    std::optional<Error> lastSaveError_;
    // Downloads the last save could not encode, so each is logged once.
    std::vector<std::string> unencodedIds_;
};

}  // namespace zarvo
