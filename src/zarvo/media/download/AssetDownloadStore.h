#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/download/HlsPackagePlan.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/SqliteDatabase.h"
#include "zarvo/platform/SqliteStatement.h"

namespace zarvo {

// The download service's records, in one SQLite database (WAL, each commit synced) under the
// application home: the tasks of each session identifier with what they download and where;
// the plan of each package, saved by its first run so that later runs fetch what it named even
// when the playlists change; and the length of every file of a package that is whole on disk.
// A record is written as soon as it changes, so a process that dies leaves its tasks behind for
// the next session with the same identifier. A write that fails is logged and kept as
// lastWriteError(); the stored value stays what it was. Any thread.
class ZARVO_EXPORT AssetDownloadStore {
public:
    // An ended task has its outcome recorded and its delegate has not heard it yet: the next
    // session hands it back and tells its end again. A completed task's end was heard.
    enum class TaskState { running, suspended, ended, completed };
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
        // How an ended task ended: nothing when it succeeded.
        std::optional<Error> outcome;
    };

    // The store at its place in the home; nothing when the database cannot be opened.
    static std::shared_ptr<AssetDownloadStore> open();
    static std::shared_ptr<AssetDownloadStore> open(const std::filesystem::path& path);

    // Adds the record (its id is set), completing any unfinished task of its package; false
    // when it could not be written.
    bool insert(TaskRecord& record);
    bool update(const TaskRecord& record);
    // The session's tasks that are not completed, oldest first.
    std::vector<TaskRecord> unfinishedTasks(const std::string& session);
    // The newest task of any session that downloads into `package`.
    std::optional<TaskRecord> lastTaskFor(const std::string& package);

    // The plan of `package` (relative to the home), once saved.
    std::optional<HlsPackagePlan> plan(const std::string& package);
    bool savePlan(const std::string& package, const HlsPackagePlan& plan);
    // A file of the package (its path in the package) is whole on disk with `length` bytes.
    bool addFile(const std::string& package, const std::string& path, std::int64_t length);
    // The lengths of the package's whole files, by path.
    std::map<std::string, std::int64_t> files(const std::string& package);
    // Drops the plan and the files of a package that is gone.
    bool forgetPackage(const std::string& package);

    // Why the last write failed, until one succeeds.
    std::optional<std::string> lastWriteError() const;

    explicit AssetDownloadStore(std::unique_ptr<SqliteDatabase> database);

private:
    std::vector<TaskRecord> select(const std::string& where, const std::string& value);
    // Binds and runs a statement that writes; false (and reported) when it fails.
    bool run(SqliteStatement* statement, const std::function<void(SqliteStatement&)>& bind);
    bool failed(const std::string& reason);

    mutable std::mutex mutex_;
    std::unique_ptr<SqliteDatabase> database_;
    std::optional<std::string> lastWriteError_;
};

}  // namespace zarvo
