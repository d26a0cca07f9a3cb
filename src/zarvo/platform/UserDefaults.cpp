#include "zarvo/platform/UserDefaults.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include <sqlite3.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/AsciiText.h"
#include "zarvo/platform/Log.h"
#include "zarvo/platform/SqliteDatabase.h"

namespace zarvo {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDatabaseFileName = "UserDefaults.sqlite";

constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS defaults ("
    "key TEXT PRIMARY KEY NOT NULL, type TEXT NOT NULL, value)";
constexpr const char* kSelectValue = "SELECT type, value FROM defaults WHERE key = ?1";
constexpr const char* kSelectExists = "SELECT 1 FROM defaults WHERE key = ?1";
constexpr const char* kSelectKeys = "SELECT key FROM defaults ORDER BY key";
constexpr const char* kUpsert =
    "INSERT INTO defaults (key, type, value) VALUES (?1, ?2, ?3) "
    "ON CONFLICT (key) DO UPDATE SET type = excluded.type, value = excluded.value";
constexpr const char* kDelete = "DELETE FROM defaults WHERE key = ?1";

// The type column's texts.
enum class ValueType { string, data, integer, boolean };

std::string_view typeName(ValueType type) {
    switch (type) {
        case ValueType::string:
            return "string";
        case ValueType::data:
            return "data";
        case ValueType::integer:
            return "integer";
        case ValueType::boolean:
            return "boolean";
    }
    return "string";
}

std::optional<ValueType> typeFromName(std::string_view name) {
    for (auto type : {ValueType::string, ValueType::data, ValueType::integer, ValueType::boolean}) {
        if (typeName(type) == name) {
            return type;
        }
    }
    return std::nullopt;
}

// A whole decimal integer, or a decimal number truncated toward zero; nothing otherwise.
std::optional<long long> parseNumber(std::string_view text) {
    text = ascii::trimmed(text);
    if (text.empty()) {
        return std::nullopt;
    }
    std::string_view digits = text;
    if (digits.front() == '+') {
        digits.remove_prefix(1);
    }
    long long whole = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), whole);
    if (error == std::errc() && end == digits.data() + digits.size()) {
        return whole;
    }
    const std::string copy(text);
    char* parsedEnd = nullptr;
    const double real = std::strtod(copy.c_str(), &parsedEnd);
    if (parsedEnd != copy.c_str() + copy.size() || !std::isfinite(real) ||
        std::fabs(real) >= 9.2e18) {
        return std::nullopt;
    }
    return static_cast<long long>(real);
}

// One stored row.
struct StoredValue {
    ValueType type = ValueType::string;
    std::string bytes;     // string and data values
    long long number = 0;  // integer and boolean values
};

class SqliteUserDefaults final : public UserDefaults {
public:
    // A null database gives a store that holds nothing and refuses writes.
    explicit SqliteUserDefaults(std::unique_ptr<SqliteDatabase> database)
        : database_(std::move(database)) {}

    bool isAvailable() const { return database_ != nullptr; }

    std::optional<std::string> string(const std::string& key) const override {
        auto value = load(key);
        if (!value) {
            return std::nullopt;
        }
        switch (value->type) {
            case ValueType::string:
                return std::move(value->bytes);
            case ValueType::integer:
            case ValueType::boolean:
                return std::to_string(value->number);
            case ValueType::data:
                return std::nullopt;
        }
        return std::nullopt;
    }

    std::optional<Data> data(const std::string& key) const override {
        auto value = load(key);
        if (!value || (value->type != ValueType::data && value->type != ValueType::string)) {
            return std::nullopt;
        }
        return std::move(value->bytes);
    }

    long long integer(const std::string& key) const override {
        auto value = load(key);
        if (!value) {
            return 0;
        }
        switch (value->type) {
            case ValueType::integer:
            case ValueType::boolean:
                return value->number;
            case ValueType::string:
                return parseNumber(value->bytes).value_or(0);
            case ValueType::data:
                return 0;
        }
        return 0;
    }

    bool boolean(const std::string& key) const override {
        auto value = load(key);
        if (!value) {
            return false;
        }
        switch (value->type) {
            case ValueType::integer:
            case ValueType::boolean:
                return value->number != 0;
            case ValueType::string: {
                const auto text = ascii::trimmed(value->bytes);
                if (ascii::equalsIgnoringCase(text, "yes") ||
                    ascii::equalsIgnoringCase(text, "true")) {
                    return true;
                }
                return parseNumber(text).value_or(0) != 0;
            }
            case ValueType::data:
                return false;
        }
        return false;
    }

    bool hasValue(const std::string& key) const override {
        std::lock_guard lock(mutex_);
        SqliteStatement* query = prepared(kSelectExists);
        if (query == nullptr) {
            return false;
        }
        SqliteStatementReset done(*query);
        return query->bindText(1, key) == SQLITE_OK && query->step() == SQLITE_ROW;
    }

    std::vector<std::string> keys() const override {
        std::vector<std::string> result;
        std::lock_guard lock(mutex_);
        SqliteStatement* query = prepared(kSelectKeys);
        if (query == nullptr) {
            return result;
        }
        SqliteStatementReset done(*query);
        while (query->step() == SQLITE_ROW) {
            result.push_back(query->columnText(0));
        }
        return result;
    }

    bool setString(const std::string& key, const std::string& value) override {
        return write(key, ValueType::string, [&](SqliteStatement& statement) {
            return statement.bindTextReference(3, value);
        });
    }

    bool setData(const std::string& key, const Data& value) override {
        return write(key, ValueType::data, [&](SqliteStatement& statement) {
            return statement.bindBlobReference(3, value);
        });
    }

    bool setInteger(const std::string& key, long long value) override {
        return write(key, ValueType::integer,
                     [&](SqliteStatement& statement) { return statement.bindInt64(3, value); });
    }

    bool setBoolean(const std::string& key, bool value) override {
        return write(key, ValueType::boolean, [&](SqliteStatement& statement) {
            return statement.bindInt64(3, value ? 1 : 0);
        });
    }

    bool removeObject(const std::string& key) override {
        std::lock_guard lock(mutex_);
        SqliteStatement* statement = prepared(kDelete);
        if (statement == nullptr) {
            return false;
        }
        SqliteStatementReset done(*statement);
        if (statement->bindText(1, key) != SQLITE_OK) {
            return false;
        }
        return finish(*statement, key);
    }

    bool synchronize() override {
        std::lock_guard lock(mutex_);
        if (!database_) {
            return false;
        }
        if (database_->isReadOnly()) {
            return true;  // nothing of ours can be pending
        }
        int logFrames = 0;
        int copiedFrames = 0;
        const int result = sqlite3_wal_checkpoint_v2(
            database_->handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, &logFrames, &copiedFrames);
        return result == SQLITE_OK;
    }

private:
    SqliteStatement* prepared(const char* sql) const {
        return database_ ? database_->statement(sql) : nullptr;
    }

    std::optional<StoredValue> load(const std::string& key) const {
        std::lock_guard lock(mutex_);
        SqliteStatement* query = prepared(kSelectValue);
        if (query == nullptr) {
            return std::nullopt;
        }
        SqliteStatementReset done(*query);
        if (query->bindText(1, key) != SQLITE_OK || query->step() != SQLITE_ROW) {
            return std::nullopt;
        }
        auto type = typeFromName(query->columnText(0));
        if (!type) {
            return std::nullopt;  // a row written by something else: not ours to interpret
        }
        StoredValue value;
        value.type = *type;
        if (*type == ValueType::integer || *type == ValueType::boolean) {
            value.number = query->columnInt64(1);
        } else {
            value.bytes = query->columnText(1);
        }
        return value;
    }

    template <typename Bind>
    bool write(const std::string& key, ValueType type, Bind bindValue) {
        std::lock_guard lock(mutex_);
        SqliteStatement* statement = prepared(kUpsert);
        if (statement == nullptr) {
            return false;
        }
        SqliteStatementReset done(*statement);
        if (statement->bindText(1, key) != SQLITE_OK ||
            statement->bindText(2, typeName(type)) != SQLITE_OK ||
            bindValue(*statement) != SQLITE_OK) {
            return false;
        }
        return finish(*statement, key);
    }

    // Runs a write statement as its own transaction; a failure leaves the stored value as it was.
    bool finish(SqliteStatement& statement, const std::string& key) {
        const int result = statement.step();
        if (result == SQLITE_DONE) {
            return true;
        }
        logDiagnostic("UserDefaults", "writing \"" + key + "\" to " + database_->path().string() +
                                          " failed: " + database_->lastErrorMessage());
        return false;
    }

    mutable std::mutex mutex_;
    std::unique_ptr<SqliteDatabase> database_;
};

// Opens the file and prepares the table; nullptr when the file cannot serve as a store.
std::unique_ptr<SqliteDatabase> openDatabase(const fs::path& path) {
    auto database = SqliteDatabase::open(path);
    if (!database) {
        return nullptr;
    }
    if (!database->isReadOnly()) {
        // WAL keeps readers and the single writer out of each other's way; FULL syncs each
        // commit, so that a value counts as stored only once it would survive a power cut.
        database->execute("PRAGMA journal_mode = WAL");
        database->execute("PRAGMA synchronous = FULL");
        // Large values pass through the log; cut it back after each checkpoint.
        database->execute("PRAGMA journal_size_limit = 8388608");
        if (database->execute(kCreateTable) == SQLITE_OK) {
            return database;
        }
    }
    // Read-only, or the table could not be made: usable only if the table is there to read.
    if (database->statement(kSelectValue) != nullptr) {
        return database;
    }
    if (!database->isReadOnly() || !fs::exists(path)) {
        return nullptr;
    }
    // A read-only WAL database in a folder where its shared-memory file cannot be made is
    // still readable as an immutable file.
    database = SqliteDatabase::open(path, SqliteDatabase::Options{.immutable = true});
    if (!database || database->statement(kSelectValue) == nullptr) {
        return nullptr;
    }
    return database;
}

// Which file a path names: device and inode.
using FileIdentity = std::pair<dev_t, ino_t>;

std::optional<FileIdentity> fileIdentity(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    return FileIdentity(info.st_dev, info.st_ino);
}

std::shared_ptr<SqliteUserDefaults> makeStore(const fs::path& path) {
    return std::make_shared<SqliteUserDefaults>(openDatabase(path));
}

}  // namespace

std::shared_ptr<UserDefaults> UserDefaults::open(const fs::path& databasePath) {
    auto store = makeStore(databasePath);
    if (!store->isAvailable()) {
        return nullptr;
    }
    return store;
}

std::shared_ptr<UserDefaults> UserDefaults::standard() {
    static std::mutex mutex;
    static fs::path currentPath;
    static std::optional<FileIdentity> currentFile;
    static std::shared_ptr<SqliteUserDefaults> current;

    const fs::path path = AppDirectories::preferences() / kDatabaseFileName;
    std::lock_guard lock(mutex);
    // Another home means another store; so does a database file removed or replaced behind
    // the open connection (its writes would go to a file nobody reads). A store that could
    // not open is retried.
    const auto file = fileIdentity(path);
    if (!current || !current->isAvailable() || currentPath != path || currentFile != file) {
        current = makeStore(path);
        currentPath = path;
        currentFile = fileIdentity(path);
        if (!current->isAvailable()) {
            logDiagnostic("UserDefaults", "cannot open " + path.string() + "; values are not kept");
        }
    }
    return current;
}

}  // namespace zarvo
