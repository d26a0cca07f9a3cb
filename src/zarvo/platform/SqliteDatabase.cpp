#include "zarvo/platform/SqliteDatabase.h"

#include <sys/stat.h>
#include <utility>

#include <sqlite3.h>

namespace zarvo {

void SqliteDatabase::Closer::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

SqliteDatabase::SqliteDatabase(Token, sqlite3* database, std::filesystem::path path)
    : database_(database), path_(std::move(path)) {}

SqliteDatabase::~SqliteDatabase() {
    // Statements first: the connection refuses to close cleanly while they live.
    statements_.clear();
}

namespace {

// "file:" URI of a path, with the characters that URIs give a meaning escaped.
std::string immutableUri(const std::filesystem::path& path) {
    std::string uri = "file:";
    for (char c : path.string()) {
        switch (c) {
            case '%':
                uri += "%25";
                break;
            case '?':
                uri += "%3f";
                break;
            case '#':
                uri += "%23";
                break;
            default:
                uri += c;
        }
    }
    return uri + "?immutable=1";
}

}  // namespace

std::unique_ptr<SqliteDatabase> SqliteDatabase::open(const std::filesystem::path& path,
                                                     Options options) {
    sqlite3* raw = nullptr;
    const bool readOnly = options.readOnly || options.immutable;
    int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                SQLITE_OPEN_NOMUTEX;
    std::string name = path.string();
    if (options.immutable) {
        flags |= SQLITE_OPEN_URI;
        name = immutableUri(std::filesystem::absolute(path));
    }
    const int result = sqlite3_open_v2(name.c_str(), &raw, flags, nullptr);
    // The handle is owned even when opening failed, so it is always closed.
    auto database = std::make_unique<SqliteDatabase>(Token{}, raw, path);
    if (result != SQLITE_OK || raw == nullptr) {
        return nullptr;
    }
    sqlite3_extended_result_codes(raw, 1);
    sqlite3_busy_timeout(raw, static_cast<int>(options.busyTimeout.count()));
    if (!readOnly) {
        // The user's alone, whatever the umask: the log files SQLite makes later take the
        // database's permissions, and those an older run left are made private too.
        for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
            ::chmod((path.string() + suffix).c_str(), 0600);
        }
    }
    return database;
}

int SqliteDatabase::execute(const std::string& sql) {
    return sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr);
}

SqliteStatement* SqliteDatabase::statement(const std::string& sql) {
    if (auto found = statements_.find(sql); found != statements_.end()) {
        return found->second.get();
    }
    sqlite3_stmt* raw = nullptr;
    const int result =
        sqlite3_prepare_v3(database_.get(), sql.c_str(), static_cast<int>(sql.size()),
                           SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
    if (result != SQLITE_OK || raw == nullptr) {
        sqlite3_finalize(raw);
        return nullptr;
    }
    auto made = std::make_unique<SqliteStatement>(raw);
    SqliteStatement* statement = made.get();
    statements_.emplace(sql, std::move(made));
    return statement;
}

bool SqliteDatabase::isReadOnly() const {
    return sqlite3_db_readonly(database_.get(), "main") == 1;
}

std::string SqliteDatabase::lastErrorMessage() const {
    const char* message = sqlite3_errmsg(database_.get());
    return message != nullptr ? message : "";
}

}  // namespace zarvo
