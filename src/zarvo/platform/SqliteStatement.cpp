#include "zarvo/platform/SqliteStatement.h"

#include <sqlite3.h>

namespace zarvo {

void SqliteStatement::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

SqliteStatement::SqliteStatement(sqlite3_stmt* statement) : statement_(statement) {}

SqliteStatement::~SqliteStatement() = default;

int SqliteStatement::bindText(int index, std::string_view text) {
    return sqlite3_bind_text64(statement_.get(), index, text.data(), text.size(), SQLITE_TRANSIENT,
                               SQLITE_UTF8);
}

int SqliteStatement::bindBlob(int index, std::string_view bytes) {
    // A zero-length blob still binds as a blob, not as NULL.
    if (bytes.empty()) {
        return sqlite3_bind_zeroblob(statement_.get(), index, 0);
    }
    return sqlite3_bind_blob64(statement_.get(), index, bytes.data(), bytes.size(),
                               SQLITE_TRANSIENT);
}

int SqliteStatement::bindTextReference(int index, std::string_view text) {
    return sqlite3_bind_text64(statement_.get(), index, text.data(), text.size(), SQLITE_STATIC,
                               SQLITE_UTF8);
}

int SqliteStatement::bindBlobReference(int index, std::string_view bytes) {
    if (bytes.empty()) {
        return sqlite3_bind_zeroblob(statement_.get(), index, 0);
    }
    return sqlite3_bind_blob64(statement_.get(), index, bytes.data(), bytes.size(), SQLITE_STATIC);
}

int SqliteStatement::bindInt64(int index, std::int64_t value) {
    return sqlite3_bind_int64(statement_.get(), index, value);
}

int SqliteStatement::bindNull(int index) {
    return sqlite3_bind_null(statement_.get(), index);
}

int SqliteStatement::step() {
    return sqlite3_step(statement_.get());
}

void SqliteStatement::reset() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
}

int SqliteStatement::columnType(int column) const {
    return sqlite3_column_type(statement_.get(), column);
}

std::int64_t SqliteStatement::columnInt64(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string SqliteStatement::columnText(int column) const {
    // Blob first, then bytes: the size must be asked after the pointer.
    const void* bytes = sqlite3_column_blob(statement_.get(), column);
    const int size = sqlite3_column_bytes(statement_.get(), column);
    if (bytes == nullptr || size <= 0) {
        return {};
    }
    return std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

bool SqliteStatement::columnIsNull(int column) const {
    return columnType(column) == SQLITE_NULL;
}

}  // namespace zarvo
