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

// The offline downloads as the application drives them.
class ZARVO_EXPORT ZMOfflineManagerProtocol {
public:
    using Competion = std::function<void(const std::shared_ptr<ZMOfflineDownload>& download,
                                         const std::optional<Error>& error)>;

    virtual ~ZMOfflineManagerProtocol() = default;

    virtual std::shared_ptr<ZMOfflineManagerDelegate> delegate() const = 0;
    virtual void setDelegate(std::weak_ptr<ZMOfflineManagerDelegate> delegate) = 0;
    virtual void setIsWiFiOnly(bool isWiFiOnly) = 0;
    virtual ZMOfflineDownload::List getDownloads() = 0;
    virtual void cancel(const std::string& downloadWithId) = 0;
    virtual void restart(const std::string& downloadWithId) = 0;
    virtual void pause(const std::string& downloadWithId) = 0;
    virtual void resume(const std::string& downloadWithId) = 0;
    virtual void findEmpty() = 0;
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
