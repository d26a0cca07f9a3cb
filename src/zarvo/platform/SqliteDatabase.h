#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/SqliteStatement.h"

struct sqlite3;

namespace zarvo {

// One SQLite connection (RAII: closed on destruction) with a cache of prepared statements.
// Not thread-safe: the owner serialises use, for example with a mutex.
class ZARVO_EXPORT SqliteDatabase {
public:
    struct Options {
        bool readOnly = false;
        // Read-only without locks or a shared-memory file: the way to read a database in a
        // folder where those files cannot be made. Only safe while nobody writes the file.
        bool immutable = false;
        // How long a write waits for another connection or process holding the lock.
        std::chrono::milliseconds busyTimeout{5000};
    };

    // Opens (and creates unless read-only) the database file; nullptr if that fails.
    static std::unique_ptr<SqliteDatabase> open(const std::filesystem::path& path, Options options);
    static std::unique_ptr<SqliteDatabase> open(const std::filesystem::path& path) {
        return open(path, Options{});
    }

    struct Token {
    private:
        friend class SqliteDatabase;
        Token() = default;
    };
    // Use open(); the token keeps construction to it.
    SqliteDatabase(Token, sqlite3* database, std::filesystem::path path);
    ~SqliteDatabase();
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    // Runs one or more statements without results; returns the SQLite result code.
    int execute(const std::string& sql);
    // The cached prepared statement for `sql` (prepared on first use); nullptr if it does not
    // compile. The statement stays owned by the database.
    SqliteStatement* statement(const std::string& sql);

    // True when the connection cannot write (a read-only file or folder).
    bool isReadOnly() const;
    std::string lastErrorMessage() const;
    const std::filesystem::path& path() const { return path_; }
    sqlite3* handle() const { return database_.get(); }

private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };
    // Declared before the statements so that they are finalized before the connection closes.
    std::unique_ptr<sqlite3, Closer> database_;
    std::filesystem::path path_;
    std::map<std::string, std::unique_ptr<SqliteStatement>, std::less<>> statements_;
};

}  // namespace zarvo
