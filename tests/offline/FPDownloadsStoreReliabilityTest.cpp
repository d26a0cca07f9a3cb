#include <algorithm>
#include <random>
#include <set>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/platform/AppDirectories.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

std::shared_ptr<ZMOfflineDownload> create(FPDownloadsStore& store, const std::string& title,
                                          int number, std::optional<std::int64_t> minBitrate = {}) {
    return store.createWaitingDownload(
        title, *Url::parse("https://cdn.example/" + std::to_string(number) + "/master.m3u8"),
        std::nullopt, std::nullopt, std::nullopt, std::nullopt, minBitrate, {});
}

// Runs in the child: saves the whole list over and over, each time with every download at the
// same progress and with or without a package (so consecutive lists differ in length), and
// reports each finished save with one byte on `progressFd`.
[[noreturn]] void updateUntilKilled(const std::filesystem::path& database, int progressFd) {
    FPDownloadsStore store(UserDefaults::open(database));
    auto downloads = store.getAllDownloads();
    for (long round = 1;; ++round) {
        for (const auto& download : downloads) {
            download->setProgress(static_cast<double>(round));
            download->setOfflineUrl(
                round % 2 == 0
                    ? std::optional<std::string>("Library/media/" + download->id() + ".movpkg")
                    : std::nullopt);
        }
        store.update(downloads.front());
        if (::write(progressFd, "x", 1) != 1) {
            ::_exit(1);
        }
    }
}

TEST(FPDownloadsStoreReliabilityTest, AKilledSaveLeavesTheOldOrTheNewList) {
    test::TempHome home;
    constexpr std::size_t count = 200;
    {
        FPDownloadsStore store;
        store.getAllDownloads();
        for (std::size_t i = 0; i < count; ++i) {
            create(store, "Title " + std::to_string(i), int(i));
        }
    }
    const auto database = AppDirectories::preferences() / "UserDefaults.sqlite";
    std::mt19937 random(7);
    for (int attempt = 0; attempt < 15; ++attempt) {
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(fds[0]);
            updateUntilKilled(database, fds[1]);
        }
        ::close(fds[1]);
        // Let the child finish a few saves, then kill it in the middle of the next ones.
        int saves = std::uniform_int_distribution<int>(1, 12)(random);
        char byte;
        for (int i = 0; i < saves && ::read(fds[0], &byte, 1) == 1; ++i) {
        }
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ::close(fds[0]);
        ASSERT_TRUE(WIFSIGNALED(status));

        auto text = UserDefaults::open(database)->string(FPDownloadsStore::DownloadsJsonKey);
        ASSERT_TRUE(text);
        auto downloads = OfflineDownloadJson::decodeList(*text);
        ASSERT_TRUE(downloads) << "torn list after kill " << attempt;
        ASSERT_EQ(downloads->size(), count);
        double progress = downloads->front()->progress();
        bool withPackage = downloads->front()->offlineUrl().has_value();
        EXPECT_GE(progress, static_cast<double>(saves));
        for (const auto& download : *downloads) {
            EXPECT_EQ(download->progress(), progress);
            EXPECT_EQ(download->offlineUrl().has_value(), withPackage);
        }
    }
}

TEST(FPDownloadsStoreReliabilityTest, ConcurrentOperationsLoseNoCreatedDownload) {
    test::TempHome home;
    FPDownloadsStore store;
    store.getAllDownloads();
    auto shared = create(store, "shared", 0);
    constexpr int threadCount = 4;
    constexpr int perThread = 30;
    std::vector<std::vector<std::string>> kept(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                auto download = create(store, "T" + std::to_string(t) + "-" + std::to_string(i),
                                       t * 100 + i, i);
                download->setState(ZMOfflineDownloadState::downloading);
                download->setProgress(0.5);
                store.update(download);
                shared->setProgress(i / 100.0);
                store.update(shared);
                EXPECT_EQ(store.findFirstWithId(download->id()), download);
                EXPECT_NE(store.findFirstWithState(ZMOfflineDownloadState::downloading), nullptr);
                if (i % 3 == 0) {
                    store.deleteDownloadWithId(download->id());
                    EXPECT_EQ(store.findFirstWithId(download->id()), nullptr);
                } else {
                    kept[t].push_back(download->id());
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    std::set<std::string> expected{shared->id()};
    for (const auto& ids : kept) {
        expected.insert(ids.begin(), ids.end());
    }
    auto idsOf = [](const ZMOfflineDownload::List& downloads) {
        std::set<std::string> ids;
        for (const auto& download : downloads) {
            ids.insert(download->id());
        }
        return ids;
    };
    EXPECT_EQ(idsOf(store.getAllDownloads()), expected);
    EXPECT_EQ(idsOf(FPDownloadsStore().getAllDownloads()), expected);
}

}  // namespace
}  // namespace zarvo
