#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/HlsPackagePlan.h"
#include "zarvo/platform/SqliteDatabase.h"

namespace zarvo {

// The download service's records, in one SQLite database (WAL) under the application home:
// the tasks of each session identifier with what they download and where, and every file of a
// package that is whole on disk. A record is written as soon as it changes, so a process that
// dies leaves its tasks behind for the next session with the same identifier. Any thread.
class AssetDownloadStore {
public:
    enum class TaskState { running, suspended, completed };
    struct TaskRecord {
        std::int64_t id = 0;
        std::string session;
        std::string description;
        std::string url;  // of the asset's master playlist
        std::map<std::string, std::string> headers;
        std::string title;
        std::vector<HlsPackagePlan::Rendition> renditions;
        std::optional<std::int64_t> minimumBitrate;
        std::string package;  // the package directory, relative to the home
        TaskState state = TaskState::suspended;
    };

    // The store at its place in the home; nothing when the database cannot be opened.
    static std::shared_ptr<AssetDownloadStore> open();
    static std::shared_ptr<AssetDownloadStore> open(const std::filesystem::path& path);

    // Adds the record (its id is set) ; false when it could not be written.
    bool insert(TaskRecord& record);
    bool update(const TaskRecord& record);
    // The session's tasks that are not completed, oldest first.
    std::vector<TaskRecord> unfinishedTasks(const std::string& session);
    // The newest task of any session that downloads into `package`.
    std::optional<TaskRecord> lastTaskFor(const std::string& package);

    // A file of the task's package that is whole on disk.
    bool addFile(std::int64_t task, const std::string& path);
    std::vector<std::string> files(std::int64_t task);

    explicit AssetDownloadStore(std::unique_ptr<SqliteDatabase> database);

private:
    std::vector<TaskRecord> select(const std::string& where, const std::string& value);

    std::mutex mutex_;
    std::unique_ptr<SqliteDatabase> database_;
};

}  // namespace zarvo
