#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "zarvo/platform/Export.h"

struct sqlite3_stmt;

namespace zarvo {

// One prepared SQLite statement (RAII: finalized on destruction). Parameters are numbered
// from 1, columns from 0, as in SQLite. Not thread-safe: the owner serialises use.
class ZARVO_EXPORT SqliteStatement {
public:
    explicit SqliteStatement(sqlite3_stmt* statement);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // Each bind returns the SQLite result code (SQLITE_OK on success). Texts and blobs are copied.
    int bindText(int index, std::string_view text);
    int bindBlob(int index, std::string_view bytes);
    // Without a copy: the bytes must stay alive and unchanged until reset(). For large values.
    int bindTextReference(int index, std::string_view text);
    int bindBlobReference(int index, std::string_view bytes);
    int bindInt64(int index, std::int64_t value);
    int bindNull(int index);

    // SQLITE_ROW, SQLITE_DONE or an error code.
    int step();
    // Ready for another run: clears bindings and the previous run's state.
    void reset();

    int columnType(int column) const;  // SQLITE_INTEGER, SQLITE_TEXT, SQLITE_BLOB, SQLITE_NULL...
    std::int64_t columnInt64(int column) const;
    std::string columnText(int column) const;  // text or blob bytes as they are
    bool columnIsNull(int column) const;

    sqlite3_stmt* handle() const { return statement_.get(); }

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// Resets a statement when the scope ends, so a cached statement never stays mid-run
// (an unfinished read would hold a read transaction open).
class ZARVO_EXPORT SqliteStatementReset {
public:
    explicit SqliteStatementReset(SqliteStatement& statement) : statement_(statement) {}
    ~SqliteStatementReset() { statement_.reset(); }
    SqliteStatementReset(const SqliteStatementReset&) = delete;
    SqliteStatementReset& operator=(const SqliteStatementReset&) = delete;

private:
    SqliteStatement& statement_;
};

}  // namespace zarvo
