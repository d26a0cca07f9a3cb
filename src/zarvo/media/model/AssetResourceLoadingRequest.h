#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/model/AssetResourceLoadingDataRequest.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

// A resource that the engine cannot load itself (a URL whose scheme is not http, https or
// file, such as an "skd" content key), handed to the asset's resource-loader delegate. The
// delegate fills the data request and ends the request with finishLoading() or
// finishLoading(error), from any thread. For content keys the request also builds the key
// request message for the licence server and unwraps persistent keys, on the clear-key
// protocol of ContentKeyRequest.
class ZARVO_EXPORT AssetResourceLoadingRequest
    : public std::enable_shared_from_this<AssetResourceLoadingRequest> {
public:
    // How a request ended.
    struct Outcome {
        Data data;                               // what the delegate responded
        std::optional<std::string> contentType;  // from the content-information request
        std::optional<Error> error;              // set by finishLoading(error)
    };
    using Finish = std::function<void(const Outcome&)>;
    using Options = std::map<std::string, bool>;

    // The option that asks streamingContentKeyRequestData for a request of a persistent key.
    static constexpr const char* streamingContentKeyRequestRequiresPersistentKey =
        "StreamingContentKeyRequestRequiresPersistentKey";
    static constexpr const char* errorDomain = "ZMResourceLoadingErrorDomain";

    // `finish` runs once, on the thread that finishes (not when cancelled). Requests without a
    // content-information or data request exist: delegates must cope with both.
    AssetResourceLoadingRequest(UrlRequest request, bool hasContentInformationRequest,
                                bool hasDataRequest, Finish finish);

    const UrlRequest& request() const { return request_; }
    std::shared_ptr<AssetResourceLoadingContentInformationRequest> contentInformationRequest()
        const {
        return contentInformation_;
    }
    std::shared_ptr<AssetResourceLoadingDataRequest> dataRequest() const { return data_; }

    // The key request message ("SPC") for `contentIdentifier`, made with the application
    // certificate `appIdentifier`; asks for a persistent key when `options` holds
    // streamingContentKeyRequestRequiresPersistentKey = true. Fails for a certificate that
    // is not one, or an empty identifier.
    std::variant<Data, Error> streamingContentKeyRequestData(const Data& appIdentifier,
                                                             const Data& contentIdentifier,
                                                             const Options& options = {}) const;
    // The persistent key made from the licence server's answer ("CKC"); fails when the answer
    // is not a content key.
    std::variant<Data, Error> persistentContentKey(const Data& keyVendorResponse,
                                                   const Options& options = {}) const;

    void finishLoading();
    void finishLoading(const Error& error);
    bool isFinished() const;
    bool isCancelled() const;

    // Engine side: the engine no longer wants the answer (its item went away). Later
    // finishLoading calls are ignored. False when the request had already finished.
    bool cancel();

private:
    void end(std::optional<Error> error);

    const UrlRequest request_;
    const std::shared_ptr<AssetResourceLoadingContentInformationRequest> contentInformation_;
    const std::shared_ptr<AssetResourceLoadingDataRequest> data_;
    mutable std::mutex mutex_;
    Finish finish_;
    bool finished_ = false;
    bool cancelled_ = false;
};

}  // namespace zarvo
