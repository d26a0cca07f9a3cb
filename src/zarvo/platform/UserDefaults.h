#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// Persistent key-value storage on SQLite (WAL), one database per application home at
// <home>/Library/Preferences/UserDefaults.sqlite. Each write is one transaction, so after a
// crash a value is either the old or the new one. Safe to use from several threads and by
// several processes.
class ZARVO_EXPORT UserDefaults {
public:
    // The store of the current application home (a new home gives another store).
    static std::shared_ptr<UserDefaults> standard();
    // A store in a database file of its own; nullptr if it cannot be opened.
    static std::shared_ptr<UserDefaults> open(const std::filesystem::path& databasePath);

    virtual ~UserDefaults() = default;

    // A string value (a stored integer or boolean reads as its decimal text; data as nothing).
    virtual std::optional<std::string> string(const std::string& key) const = 0;
    // A data value, or a string value as its UTF-8 bytes.
    virtual std::optional<Data> data(const std::string& key) const = 0;
    // An integer value (a numeric string parses; anything else reads as 0).
    virtual long long integer(const std::string& key) const = 0;
    // A boolean (integers other than 0, "YES"/"true"/"1" strings read as true; absent as false).
    virtual bool boolean(const std::string& key) const = 0;
    virtual bool hasValue(const std::string& key) const = 0;
    virtual std::vector<std::string> keys() const = 0;

    // Writes report success; a failed write (a full disk, a read-only file) leaves the old value.
    virtual bool setString(const std::string& key, const std::string& value) = 0;
    virtual bool setData(const std::string& key, const Data& value) = 0;
    virtual bool setInteger(const std::string& key, long long value) = 0;
    virtual bool setBoolean(const std::string& key, bool value) = 0;
    virtual bool removeObject(const std::string& key) = 0;
    // Writes are durable when they return; this flushes the write-ahead log into the database.
    virtual bool synchronize() = 0;
};

}  // namespace zarvo
