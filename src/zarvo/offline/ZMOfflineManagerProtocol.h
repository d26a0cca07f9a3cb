#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/offline/ZMOfflineManagerDelegate.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

/// The offline downloads as the application drives them. ZMOfflineManager describes what each
/// call does.
class ZARVO_EXPORT ZMOfflineManagerProtocol {
public:
    /// The outcome of startDownload(): the new download, or nullptr and the error.
    using Competion = std::function<void(const std::shared_ptr<ZMOfflineDownload>& download,
                                         const std::optional<Error>& error)>;

    virtual ~ZMOfflineManagerProtocol() = default;

    /// The delegate; nullptr when none is set or the host let it go.
    virtual std::shared_ptr<ZMOfflineManagerDelegate> delegate() const = 0;
    /// Sets the delegate, held weakly.
    virtual void setDelegate(std::weak_ptr<ZMOfflineManagerDelegate> delegate) = 0;
    /// Whether downloads keep off metered networks.
    virtual void setIsWiFiOnly(bool isWiFiOnly) = 0;
    /// Every download, earliest first.
    virtual ZMOfflineDownload::List getDownloads() = 0;
    /// Cancels and removes a download.
    virtual void cancel(const std::string& downloadWithId) = 0;
    /// Downloads a download again from the start.
    virtual void restart(const std::string& downloadWithId) = 0;
    /// Pauses a running download.
    virtual void pause(const std::string& downloadWithId) = 0;
    /// Resumes a paused download.
    virtual void resume(const std::string& downloadWithId) = 0;
    /// Removes the downloads whose package is gone.
    virtual void findEmpty() = 0;
    /// Queues a new download.
    virtual void startDownload(const std::string& title, const Url& hlsUrl,
                               const std::optional<Url>& fpsCertUrl,
                               const std::optional<Url>& licenseUrl,
                               const std::optional<std::vector<std::string>>& audioIds,
                               const std::optional<std::vector<std::string>>& subtitlesIds,
                               std::optional<double> minBitrate,
                               const std::map<std::string, std::string>& headers,
                               Competion competition) = 0;
};

}  // namespace zarvo
