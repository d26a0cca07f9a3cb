// The download service's records as a crash, another version or a damaged disk may leave them:
// rows of any text in every column. Reading them never fails the process; a task's record comes
// back whole or not at all, and a plan that reads back encodes to text that reads back the same.
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <sqlite3.h>

#include "zarvo/media/download/AssetDownloadStore.h"

#include "FuzzSupport.h"

namespace {

using namespace zarvo;

// The input cut into columns at each 0x1f byte; missing ones are empty.
std::vector<std::string> columnsOf(std::string_view input, std::size_t count) {
    std::vector<std::string> columns;
    while (columns.size() + 1 < count) {
        const auto cut = input.find('\x1f');
        if (cut == std::string_view::npos) {
            break;
        }
        columns.emplace_back(input.substr(0, cut));
        input.remove_prefix(cut + 1);
    }
    columns.emplace_back(input);
    columns.resize(count);
    return columns;
}

struct Records {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("zm-records-fuzz-" + std::to_string(::getpid()) + ".sqlite");
    std::shared_ptr<AssetDownloadStore> store = AssetDownloadStore::open(path);
    sqlite3* raw = nullptr;

    Records() { sqlite3_open(path.c_str(), &raw); }
};

void bindAll(sqlite3_stmt* statement, const std::vector<std::string>& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        sqlite3_bind_text(statement, static_cast<int>(i + 1), values[i].data(),
                          static_cast<int>(values[i].size()), SQLITE_TRANSIENT);
    }
}

void insert(sqlite3* database, const char* sql, const std::vector<std::string>& values) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK) {
        bindAll(statement, values);
        sqlite3_step(statement);
    }
    sqlite3_finalize(statement);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Records records;
    fuzz::check(records.store && records.raw);
    sqlite3_exec(records.raw, "DELETE FROM tasks; DELETE FROM plans; DELETE FROM package_files",
                 nullptr, nullptr, nullptr);
    const auto c = columnsOf(fuzz::text(data, size), 13);
    insert(records.raw,
           "INSERT INTO tasks(session, description, url, headers, title, renditions, "
           "minimum_bitrate, package, state, outcome) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
           {c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7], c[8], c[12]});
    insert(records.raw, "INSERT INTO plans(package, plan) VALUES(?, ?)", {c[7], c[9]});
    insert(records.raw, "INSERT INTO package_files(package, path, length) VALUES(?, ?, ?)",
           {c[7], c[10], c[11]});

    for (auto task : records.store->unfinishedTasks(c[0])) {
        fuzz::check(task.session == c[0] && task.package == c[7]);
        // What reads back writes back, and reads back the same.
        fuzz::check(records.store->update(task));
        auto again = records.store->lastTaskFor(task.package);
        fuzz::check(again && again->state == task.state && again->outcome == task.outcome);
    }
    records.store->lastTaskFor(c[7]);
    records.store->files(c[7]);
    if (auto plan = records.store->plan(c[7])) {
        const std::string text = plan->toJson();
        auto again = HlsPackagePlan::fromJson(text);
        fuzz::check(again && again->toJson() == text);
    }
    return 0;
}
