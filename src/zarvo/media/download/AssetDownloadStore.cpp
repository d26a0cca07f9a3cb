#include "zarvo/media/download/AssetDownloadStore.h"

#include <sqlite3.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/Log.h"
#include "zarvo/platform/SqliteStatement.h"

namespace zarvo {
namespace {

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS tasks(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  session TEXT NOT NULL,
  description TEXT NOT NULL,
  url TEXT NOT NULL,
  headers TEXT NOT NULL,
  title TEXT NOT NULL,
  renditions TEXT NOT NULL,
  minimum_bitrate INTEGER,
  package TEXT NOT NULL,
  state TEXT NOT NULL,
  outcome TEXT);
CREATE TABLE IF NOT EXISTS plans(
  package TEXT PRIMARY KEY,
  plan TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS package_files(
  package TEXT NOT NULL,
  path TEXT NOT NULL,
  length INTEGER NOT NULL,
  PRIMARY KEY(package, path)) WITHOUT ROWID;
DROP TABLE IF EXISTS files;
)";

constexpr const char* kColumns =
    "id, session, description, url, headers, title, renditions, minimum_bitrate, package, state, "
    "outcome";

// Inner errors nest no deeper than this in a stored outcome.
constexpr int kDeepestInnerError = 8;

std::string stateName(AssetDownloadStore::TaskState state) {
    switch (state) {
        case AssetDownloadStore::TaskState::running:
            return "running";
        case AssetDownloadStore::TaskState::suspended:
            return "suspended";
        case AssetDownloadStore::TaskState::ended:
            return "ended";
        case AssetDownloadStore::TaskState::completed:
            return "completed";
    }
    return "completed";
}

AssetDownloadStore::TaskState stateNamed(const std::string& name) {
    if (name == "running") {
        return AssetDownloadStore::TaskState::running;
    }
    if (name == "ended") {
        return AssetDownloadStore::TaskState::ended;
    }
    return name == "suspended" ? AssetDownloadStore::TaskState::suspended
                               : AssetDownloadStore::TaskState::completed;
}

Json errorJson(const Error& error, int depth = 0) {
    Json object = {{"domain", error.domain()}, {"code", error.code()}};
    object["userInfo"] = Json::object();
    for (const auto& [key, value] : error.userInfo()) {
        object["userInfo"][key] = value;
    }
    if (error.innerError() != nullptr && depth < kDeepestInnerError) {
        object["innerError"] = errorJson(*error.innerError(), depth + 1);
    }
    return object;
}

std::optional<Error> errorFrom(const Json& object, int depth = 0) {
    auto domain = json::string(object, "domain");
    auto code = json::integer(object, "code");
    if (!domain || !code) {
        return std::nullopt;
    }
    Error::UserInfo info;
    if (auto found = object.find("userInfo"); found != object.end() && found->is_object()) {
        for (const auto& [key, value] : found->items()) {
            if (value.is_string()) {
                info[key] = value.get<std::string>();
            }
        }
    }
    std::optional<Error> inner;
    if (auto found = object.find("innerError");
        found != object.end() && found->is_object() && depth < kDeepestInnerError) {
        inner = errorFrom(*found, depth + 1);
    }
    return Error(*domain, static_cast<long>(*code), std::move(info), std::move(inner));
}

std::string headersText(const std::map<std::string, std::string>& headers) {
    Json object = Json::object();
    for (const auto& [name, value] : headers) {
        object[name] = value;
    }
    return json::dump(object);
}

std::map<std::string, std::string> headersFrom(const std::string& text) {
    std::map<std::string, std::string> headers;
    const Json object = Json::parse(text, nullptr, false);
    if (object.is_object()) {
        for (const auto& [name, value] : object.items()) {
            if (value.is_string()) {
                headers[name] = value.get<std::string>();
            }
        }
    }
    return headers;
}

void bindRecord(SqliteStatement& statement, const AssetDownloadStore::TaskRecord& record) {
    statement.bindText(1, record.session);
    statement.bindText(2, record.description);
    statement.bindText(3, record.url);
    statement.bindText(4, headersText(record.headers));
    statement.bindText(5, record.title);
    statement.bindText(6, HlsPackagePlan::renditionsToJson(record.renditions));
    if (record.minimumBitrate) {
        statement.bindInt64(7, *record.minimumBitrate);
    } else {
        statement.bindNull(7);
    }
    statement.bindText(8, record.package);
    statement.bindText(9, stateName(record.state));
    if (record.outcome) {
        statement.bindText(10, json::dump(errorJson(*record.outcome)));
    } else {
        statement.bindNull(10);
    }
}

}  // namespace

std::shared_ptr<AssetDownloadStore> AssetDownloadStore::open() {
    return open(AppDirectories::library() / "com.zarvo.downloads" / "AssetDownloads.sqlite");
}

std::shared_ptr<AssetDownloadStore> AssetDownloadStore::open(const std::filesystem::path& path) {
    AppDirectories::makeFolder(path.parent_path());
    auto database = SqliteDatabase::open(path);
    if (!database) {
        return nullptr;
    }
    // Each commit is synced: a record counts as written only once it would survive a power cut.
    database->execute("PRAGMA journal_mode = WAL");
    database->execute("PRAGMA synchronous = FULL");
    if (database->execute(kSchema) != SQLITE_OK) {
        return nullptr;
    }
    // Records of versions that kept no outcome gain the column, empty.
    if (database->execute("SELECT outcome FROM tasks LIMIT 0") != SQLITE_OK &&
        database->execute("ALTER TABLE tasks ADD COLUMN outcome TEXT") != SQLITE_OK) {
        return nullptr;
    }
    return std::make_shared<AssetDownloadStore>(std::move(database));
}

AssetDownloadStore::AssetDownloadStore(std::unique_ptr<SqliteDatabase> database)
    : database_(std::move(database)) {}

bool AssetDownloadStore::insert(TaskRecord& record) {
    std::lock_guard lock(mutex_);
    // One task at a time goes on with a package: an older one that was not completed (its
    // completion could not be written) is completed with the new one's insertion.
    if (database_->execute("BEGIN IMMEDIATE") != SQLITE_OK) {
        return failed(sqlite3_errmsg(database_->handle()));
    }
    const bool inserted =
        run(database_->statement(
                "UPDATE tasks SET state = 'completed' WHERE package = ? AND state != 'completed'"),
            [&](SqliteStatement& bound) { bound.bindText(1, record.package); }) &&
        run(database_->statement(
                "INSERT INTO tasks(session, description, url, headers, title, renditions, "
                "minimum_bitrate, package, state, outcome) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
            [&](SqliteStatement& bound) { bindRecord(bound, record); });
    if (!inserted || database_->execute("COMMIT") != SQLITE_OK) {
        database_->execute("ROLLBACK");
        return inserted ? failed(sqlite3_errmsg(database_->handle())) : false;
    }
    record.id = sqlite3_last_insert_rowid(database_->handle());
    return true;
}

bool AssetDownloadStore::update(const TaskRecord& record) {
    std::lock_guard lock(mutex_);
    return run(database_->statement(
                   "UPDATE tasks SET session = ?, description = ?, url = ?, headers = ?, "
                   "title = ?, renditions = ?, minimum_bitrate = ?, package = ?, state = ?, "
                   "outcome = ? WHERE id = ?"),
               [&](SqliteStatement& bound) {
                   bindRecord(bound, record);
                   bound.bindInt64(11, record.id);
               });
}

std::vector<AssetDownloadStore::TaskRecord> AssetDownloadStore::select(const std::string& where,
                                                                       const std::string& value) {
    std::vector<TaskRecord> records;
    auto* statement =
        database_->statement(std::string("SELECT ") + kColumns + " FROM tasks WHERE " + where);
    if (statement == nullptr) {
        return records;
    }
    SqliteStatementReset reset(*statement);
    statement->bindText(1, value);
    while (statement->step() == SQLITE_ROW) {
        TaskRecord record;
        record.id = statement->columnInt64(0);
        record.session = statement->columnText(1);
        record.description = statement->columnText(2);
        record.url = statement->columnText(3);
        record.headers = headersFrom(statement->columnText(4));
        record.title = statement->columnText(5);
        record.renditions = HlsPackagePlan::renditionsFromJson(statement->columnText(6));
        if (!statement->columnIsNull(7)) {
            record.minimumBitrate = statement->columnInt64(7);
        }
        record.package = statement->columnText(8);
        record.state = stateNamed(statement->columnText(9));
        if (!statement->columnIsNull(10)) {
            const Json outcome = Json::parse(statement->columnText(10), nullptr, false);
            record.outcome = outcome.is_object() ? errorFrom(outcome) : std::nullopt;
        }
        records.push_back(std::move(record));
    }
    return records;
}

std::vector<AssetDownloadStore::TaskRecord> AssetDownloadStore::unfinishedTasks(
    const std::string& session) {
    std::lock_guard lock(mutex_);
    return select("session = ? AND state != 'completed' ORDER BY id", session);
}

std::optional<AssetDownloadStore::TaskRecord> AssetDownloadStore::lastTaskFor(
    const std::string& package) {
    std::lock_guard lock(mutex_);
    auto records = select("package = ? ORDER BY id DESC LIMIT 1", package);
    if (records.empty()) {
        return std::nullopt;
    }
    return std::move(records.front());
}

std::optional<HlsPackagePlan> AssetDownloadStore::plan(const std::string& package) {
    std::lock_guard lock(mutex_);
    auto* statement = database_->statement("SELECT plan FROM plans WHERE package = ?");
    if (statement == nullptr) {
        return std::nullopt;
    }
    SqliteStatementReset reset(*statement);
    statement->bindText(1, package);
    if (statement->step() != SQLITE_ROW) {
        return std::nullopt;
    }
    return HlsPackagePlan::fromJson(statement->columnText(0));
}

bool AssetDownloadStore::savePlan(const std::string& package, const HlsPackagePlan& plan) {
    std::lock_guard lock(mutex_);
    auto* statement =
        database_->statement("INSERT OR REPLACE INTO plans(package, plan) VALUES(?, ?)");
    return run(statement, [&](SqliteStatement& bound) {
        bound.bindText(1, package);
        bound.bindText(2, plan.toJson());
    });
}

bool AssetDownloadStore::addFile(const std::string& package, const std::string& path,
                                 std::int64_t length) {
    std::lock_guard lock(mutex_);
    auto* statement = database_->statement(
        "INSERT OR REPLACE INTO package_files(package, path, length) VALUES(?, ?, ?)");
    return run(statement, [&](SqliteStatement& bound) {
        bound.bindText(1, package);
        bound.bindText(2, path);
        bound.bindInt64(3, length);
    });
}

std::map<std::string, std::int64_t> AssetDownloadStore::files(const std::string& package) {
    std::lock_guard lock(mutex_);
    std::map<std::string, std::int64_t> lengths;
    auto* statement =
        database_->statement("SELECT path, length FROM package_files WHERE package = ?");
    if (statement == nullptr) {
        return lengths;
    }
    SqliteStatementReset reset(*statement);
    statement->bindText(1, package);
    while (statement->step() == SQLITE_ROW) {
        lengths[statement->columnText(0)] = statement->columnInt64(1);
    }
    return lengths;
}

bool AssetDownloadStore::forgetPackage(const std::string& package) {
    std::lock_guard lock(mutex_);
    bool done = true;
    for (const char* sql :
         {"DELETE FROM plans WHERE package = ?", "DELETE FROM package_files WHERE package = ?"}) {
        done = run(database_->statement(sql),
                   [&](SqliteStatement& bound) { bound.bindText(1, package); }) &&
               done;
    }
    return done;
}

std::optional<std::string> AssetDownloadStore::lastWriteError() const {
    std::lock_guard lock(mutex_);
    return lastWriteError_;
}

bool AssetDownloadStore::run(SqliteStatement* statement,
                             const std::function<void(SqliteStatement&)>& bind) {
    if (statement == nullptr) {
        return failed("a statement could not be prepared");
    }
    SqliteStatementReset reset(*statement);
    bind(*statement);
    if (statement->step() != SQLITE_DONE) {
        return failed(sqlite3_errmsg(database_->handle()));
    }
    lastWriteError_.reset();
    return true;
}

bool AssetDownloadStore::failed(const std::string& reason) {
    lastWriteError_ = reason;
    logDiagnostic("AssetDownloadStore", "the download records could not be written: " + reason);
    return false;
}

}  // namespace zarvo
