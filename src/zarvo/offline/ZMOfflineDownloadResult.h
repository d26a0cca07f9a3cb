#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class ZMOfflineDownload;

/// How a download ended: success(download) or error(download, error).
class ZARVO_EXPORT ZMOfflineDownloadResult {
public:
    /// The download completed.
    static ZMOfflineDownloadResult success(std::shared_ptr<ZMOfflineDownload> download) {
        return ZMOfflineDownloadResult(std::move(download), std::nullopt);
    }
    /// The download failed with `error`.
    static ZMOfflineDownloadResult error(std::shared_ptr<ZMOfflineDownload> download, Error error) {
        return ZMOfflineDownloadResult(std::move(download), std::move(error));
    }

    /// Whether this is a success.
    bool isSuccess() const { return !error_.has_value(); }
    /// The download that ended.
    const std::shared_ptr<ZMOfflineDownload>& download() const { return download_; }
    /// The error of an error result; nothing for a success.
    const std::optional<Error>& error() const { return error_; }

private:
    ZMOfflineDownloadResult(std::shared_ptr<ZMOfflineDownload> download, std::optional<Error> error)
        : download_(std::move(download)), error_(std::move(error)) {}

    std::shared_ptr<ZMOfflineDownload> download_;
    std::optional<Error> error_;
};

}  // namespace zarvo
