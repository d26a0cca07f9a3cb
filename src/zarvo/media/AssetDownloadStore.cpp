#include "zarvo/media/AssetDownloadStore.h"

#include <sqlite3.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/Json.h"
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
  state TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS files(
  task INTEGER NOT NULL,
  path TEXT NOT NULL,
  PRIMARY KEY(task, path)) WITHOUT ROWID;
)";

constexpr const char* kColumns =
    "id, session, description, url, headers, title, renditions, minimum_bitrate, package, state";

std::string stateName(AssetDownloadStore::TaskState state) {
    switch (state) {
        case AssetDownloadStore::TaskState::running:
            return "running";
        case AssetDownloadStore::TaskState::suspended:
            return "suspended";
        case AssetDownloadStore::TaskState::completed:
            return "completed";
    }
    return "completed";
}

AssetDownloadStore::TaskState stateNamed(const std::string& name) {
    if (name == "running") {
        return AssetDownloadStore::TaskState::running;
    }
    return name == "suspended" ? AssetDownloadStore::TaskState::suspended
                               : AssetDownloadStore::TaskState::completed;
}

std::string renditionsText(const std::vector<HlsPackagePlan::Rendition>& renditions) {
    Json list = Json::array();
    for (const auto& rendition : renditions) {
        Json item = {
            {"type", rendition.type}, {"group", rendition.groupId}, {"name", rendition.name}};
        if (rendition.language) {
            item["language"] = *rendition.language;
        }
        list.push_back(std::move(item));
    }
    return list.dump();
}

std::vector<HlsPackagePlan::Rendition> renditionsFrom(const std::string& text) {
    std::vector<HlsPackagePlan::Rendition> renditions;
    const Json list = Json::parse(text, nullptr, false);
    if (!list.is_array()) {
        return renditions;
    }
    for (const auto& item : list) {
        if (!item.is_object()) {
            continue;
        }
        HlsPackagePlan::Rendition rendition;
        rendition.type = item.value("type", "");
        rendition.groupId = item.value("group", "");
        rendition.name = item.value("name", "");
        if (item.contains("language") && item["language"].is_string()) {
            rendition.language = item["language"].get<std::string>();
        }
        renditions.push_back(std::move(rendition));
    }
    return renditions;
}

std::string headersText(const std::map<std::string, std::string>& headers) {
    Json object = Json::object();
    for (const auto& [name, value] : headers) {
        object[name] = value;
    }
    return object.dump();
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
    statement.bindText(6, renditionsText(record.renditions));
    if (record.minimumBitrate) {
        statement.bindInt64(7, *record.minimumBitrate);
    } else {
        statement.bindNull(7);
    }
    statement.bindText(8, record.package);
    statement.bindText(9, stateName(record.state));
}

}  // namespace

std::shared_ptr<AssetDownloadStore> AssetDownloadStore::open() {
    return open(AppDirectories::library() / "com.zarvo.downloads" / "AssetDownloads.sqlite");
}

std::shared_ptr<AssetDownloadStore> AssetDownloadStore::open(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    auto database = SqliteDatabase::open(path);
    if (!database) {
        return nullptr;
    }
    // With WAL, NORMAL survives a crash of the process: a commit is whole or absent.
    database->execute("PRAGMA journal_mode = WAL");
    database->execute("PRAGMA synchronous = NORMAL");
    if (database->execute(kSchema) != SQLITE_OK) {
        return nullptr;
    }
    return std::make_shared<AssetDownloadStore>(std::move(database));
}

AssetDownloadStore::AssetDownloadStore(std::unique_ptr<SqliteDatabase> database)
    : database_(std::move(database)) {}

bool AssetDownloadStore::insert(TaskRecord& record) {
    std::lock_guard lock(mutex_);
    auto* statement = database_->statement(
        "INSERT INTO tasks(session, description, url, headers, title, renditions, "
        "minimum_bitrate, package, state) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)");
    if (statement == nullptr) {
        return false;
    }
    SqliteStatementReset reset(*statement);
    bindRecord(*statement, record);
    if (statement->step() != SQLITE_DONE) {
        return false;
    }
    record.id = sqlite3_last_insert_rowid(database_->handle());
    return true;
}

bool AssetDownloadStore::update(const TaskRecord& record) {
    std::lock_guard lock(mutex_);
    auto* statement = database_->statement(
        "UPDATE tasks SET session = ?, description = ?, url = ?, headers = ?, title = ?, "
        "renditions = ?, minimum_bitrate = ?, package = ?, state = ? WHERE id = ?");
    if (statement == nullptr) {
        return false;
    }
    SqliteStatementReset reset(*statement);
    bindRecord(*statement, record);
    statement->bindInt64(10, record.id);
    return statement->step() == SQLITE_DONE;
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
        record.renditions = renditionsFrom(statement->columnText(6));
        if (!statement->columnIsNull(7)) {
            record.minimumBitrate = statement->columnInt64(7);
        }
        record.package = statement->columnText(8);
        record.state = stateNamed(statement->columnText(9));
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

bool AssetDownloadStore::addFile(std::int64_t task, const std::string& path) {
    std::lock_guard lock(mutex_);
    auto* statement = database_->statement("INSERT OR IGNORE INTO files(task, path) VALUES(?, ?)");
    if (statement == nullptr) {
        return false;
    }
    SqliteStatementReset reset(*statement);
    statement->bindInt64(1, task);
    statement->bindText(2, path);
    return statement->step() == SQLITE_DONE;
}

std::vector<std::string> AssetDownloadStore::files(std::int64_t task) {
    std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    auto* statement = database_->statement("SELECT path FROM files WHERE task = ? ORDER BY path");
    if (statement == nullptr) {
        return paths;
    }
    SqliteStatementReset reset(*statement);
    statement->bindInt64(1, task);
    while (statement->step() == SQLITE_ROW) {
        paths.push_back(statement->columnText(0));
    }
    return paths;
}

}  // namespace zarvo
