#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "zarvo/media/download/AssetDownloadDelegate.h"
#include "zarvo/media/download/AssetDownloadUrlSession.h"

namespace zarvo::test {

// What the download service tells its delegate, in order. For tests that link the media library.
struct RecordingDownloadDelegate : AssetDownloadDelegate {
    using TaskPtr = std::shared_ptr<AggregateAssetDownloadTask>;

    void willDownloadTo(AssetDownloadUrlSession&, const TaskPtr&, const Url& url) override {
        locations.push_back(url);
    }
    void didLoad(AssetDownloadUrlSession&, const TaskPtr&, const MediaTimeRange&,
                 const std::vector<MediaTimeRange>& loaded, const MediaTimeRange& expected,
                 const MediaSelection&) override {
        double sum = 0;
        for (const auto& range : loaded) {
            sum += range.duration.seconds() / expected.duration.seconds();
        }
        progress.push_back(sum);
    }
    void didCompleteFor(AssetDownloadUrlSession&, const TaskPtr&, const MediaSelection&) override {
        ++selectionsCompleted;
    }
    void didCompleteWithError(AssetDownloadUrlSession&, const TaskPtr&,
                              const std::optional<Error>& error) override {
        completions.push_back(error);
    }

    std::vector<Url> locations;
    std::vector<double> progress;
    int selectionsCompleted = 0;
    std::vector<std::optional<Error>> completions;
};

// The regular files under `root`, by their paths relative to it.
inline std::set<std::string> filesUnder(const std::filesystem::path& root) {
    std::set<std::string> files;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(root, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_regular_file()) {
            files.insert(it->path().lexically_relative(root).string());
        }
    }
    return files;
}

}  // namespace zarvo::test
