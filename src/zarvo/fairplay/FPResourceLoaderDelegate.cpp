#include "zarvo/fairplay/FPResourceLoaderDelegate.h"

#include <algorithm>
#include <iostream>
#include <utility>
#include <variant>
#include <vector>

#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/model/AssetResourceLoadingDataRequest.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/offline/FPDownloadError.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlComponents.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {

namespace {

constexpr double keyExchangeTimeout = 60;
constexpr const char* contentTypeHeader = "Content-Type";

void print(const std::string& text) {
    std::cout << text << std::endl;
}

// The first `count` characters of the bytes' lower-case hexadecimal text, two digits a byte.
std::string hexPrefix(const Data& bytes, std::size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char byte : bytes) {
        if (text.size() >= count) {
            break;
        }
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
    text.resize(std::min(text.size(), count));
    return text;
}

// Runs `request` on the shared session and waits for its answer: the body, or nothing when
// no response arrived.
std::optional<Data> fetchAndWait(UrlRequest request) {
    struct Answer {
        DispatchSemaphore done{0};
        std::optional<Data> data;
    };
    auto answer = std::make_shared<Answer>();
    request.maximumBodyLength = ResponseLimits::keyAnswer;
    UrlSession::shared()
        ->dataTask(std::move(request),
                   [answer](std::optional<Data> data, std::optional<HttpUrlResponse>,
                            std::optional<Error>) {
                       answer->data = std::move(data);
                       answer->done.signal();
                   })
        ->resume();
    answer->done.wait();
    return std::move(answer->data);
}

// A host that would leave the key directory when used as a file name.
bool isUnsafeFileName(const std::string& name) {
    return name.find('/') != std::string::npos || name.find('\0') != std::string::npos;
}

}  // namespace

std::shared_ptr<FPResourceLoaderDelegate> FPResourceLoaderDelegate::make(
    const std::shared_ptr<ZMOfflineDownload>& download) {
    return std::make_shared<FPResourceLoaderDelegate>(Token{}, download);
}

FPResourceLoaderDelegate::FPResourceLoaderDelegate(
    Token, const std::shared_ptr<ZMOfflineDownload>& download)
    : queue_(DispatchQueue::serial("com.zarvo.mediaplayer.offline.resourcerequests")),
      download_(download) {
    print("RESOURCE LOADER ::: INIT");
}

FPResourceLoaderDelegate::~FPResourceLoaderDelegate() {
    print("RESOURCE LOADER ::: DEINIT");
}

bool FPResourceLoaderDelegate::shouldWaitForLoadingOfRequestedResource(
    AssetResourceLoader&, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    return take(request);
}

bool FPResourceLoaderDelegate::shouldWaitForRenewalOfRequestedResource(
    AssetResourceLoader&, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    return take(request);
}

void FPResourceLoaderDelegate::didCancel(AssetResourceLoader&,
                                         const std::shared_ptr<AssetResourceLoadingRequest>&) {
    print("[OstraCDNOfflineFairPlay] Resource loader did cancel.");
}

bool FPResourceLoaderDelegate::take(const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    if (request->request().url.scheme() != "skd") {
        return false;
    }
    queue_->async([weakSelf = weak_from_this(), request] {
        if (auto self = weakSelf.lock()) {
            self->handle(request);
        }
    });
    return true;
}

std::filesystem::path FPResourceLoaderDelegate::keyFilePath(const std::string& assetId) const {
    auto download = download_.lock();
    if (!download) {
        fatalError("FPResourceLoaderDelegate: Download not set.");
    }
    return std::filesystem::path(download->contentKeysDirPath().decodedPath()) / (assetId + "-Key");
}

void FPResourceLoaderDelegate::handle(const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    if (auto information = request->contentInformationRequest()) {
        information->setContentType(
            AssetResourceLoadingContentInformationRequest::persistentContentKeyType);
    }
    const auto assetId = request->request().url.host();
    if (!assetId || assetId->empty()) {
        fatalError(
            "[OstraCDNOfflineFairPlay] Failed to get url or assetIDString for the request object "
            "of the resource.");
    }
    if (isUnsafeFileName(*assetId)) {
        return request->finishLoading(makeFPDownloadError(
            FPDownloadError::unexpectedError,
            makeUrlError(UrlError::badUrl, request->request().url.absoluteString(),
                         "The content identifier cannot name a key file.")));
    }

    const auto keyFile = keyFilePath(*assetId);
    std::error_code error;
    const bool exists = std::filesystem::exists(keyFile, error);
    print(std::string("[OstraCDNOfflineFairPlay] Content key exists in app directory: ") +
          (exists ? "true" : "false"));
    if (exists) {
        serveFromDisk(request, keyFile);
    } else {
        fetchFromServer(request, *assetId);
    }
}

void FPResourceLoaderDelegate::serveFromDisk(
    const std::shared_ptr<AssetResourceLoadingRequest>& request,
    const std::filesystem::path& keyFile) {
    auto key = DataFile::read(keyFile);
    if (!key) {
        request->finishLoading(makeFPDownloadError(FPDownloadError::keyNotFoundLocally));
        print("[OstraCDNOfflineFairPlay] 💥 Failed to loaded key from disk.");
        return;
    }
    print("🍀 [OstraCDNOfflineFairPlay] Key from disk: " + hexPrefix(*key, 32) + "...");
    if (auto dataRequest = request->dataRequest()) {
        dataRequest->respond(*key);
    }
    request->finishLoading();
}

std::optional<UrlRequest> FPResourceLoaderDelegate::licenseRequest(const Data& keyRequest) const {
    auto download = download_.lock();
    if (!download || !download->licenseUrl()) {
        return std::nullopt;
    }
    UrlComponents components(*download->licenseUrl());
    if (const auto& extra = download->licenseUrlQueryItems()) {
        auto items = components.queryItems().value_or(std::vector<UrlQueryItem>{});
        items.insert(items.end(), extra->begin(), extra->end());
        components.setQueryItems(items);
    } else {
        components.setQueryItems(std::nullopt);
    }
    auto url = components.url();
    if (!url) {
        return std::nullopt;
    }
    UrlRequest post(std::move(*url), UrlRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData,
                    keyExchangeTimeout);
    post.httpMethod = "POST";
    post.httpBody = keyRequest;
    for (const auto& [name, value] : download->headers()) {
        if (name != contentTypeHeader) {
            post.setValue(value, name);
        }
    }
    post.setValue("application/octet-stream", contentTypeHeader);
    return post;
}

void FPResourceLoaderDelegate::fetchFromServer(
    const std::shared_ptr<AssetResourceLoadingRequest>& request, const std::string& assetId) {
    auto obtained = [&]() -> std::variant<Data, Error> {
        std::optional<Data> certificate;
        if (auto download = download_.lock(); download && download->fpsCertUrl()) {
            certificate = fetchAndWait(
                UrlRequest(*download->fpsCertUrl(),
                           UrlRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData,
                           keyExchangeTimeout));
        }
        if (!certificate) {
            return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
        }

        AssetResourceLoadingRequest::Options options{
            {AssetResourceLoadingRequest::streamingContentKeyRequestRequiresPersistentKey, true}};
        auto keyRequest = request->streamingContentKeyRequestData(*certificate, assetId, options);
        if (auto* error = std::get_if<Error>(&keyRequest)) {
            return *error;
        }

        auto post = licenseRequest(std::get<Data>(keyRequest));
        if (!post) {
            return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
        }
        auto keyResponse = fetchAndWait(std::move(*post));
        if (!keyResponse) {
            return makeFPDownloadError(FPDownloadError::noCKCReturnedByKSM);
        }
        print("🎈CKC DATA: " + hexPrefix(*keyResponse, 32));

        auto persistentKey = request->persistentContentKey(*keyResponse);
        if (auto* error = std::get_if<Error>(&persistentKey)) {
            return *error;
        }
        const auto keyFile = keyFilePath(assetId);
        if (!DataFile::writeAtomically(
                keyFile, std::get<Data>(persistentKey),
                std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)) {
            return makeUrlError(UrlError::cannotWriteToFile,
                                Url::fileUrl(keyFile.string()).absoluteString());
        }
        return std::get<Data>(std::move(persistentKey));
    }();

    if (auto* error = std::get_if<Error>(&obtained)) {
        print("[OstraCDNOfflineFairPlay] Error during obtaining key. " +
              error->localizedDescription() + "\n");
        return request->finishLoading(*error);
    }
    const Data& key = std::get<Data>(obtained);
    print("🌸 CONTENT KEY FROM SERVER: " + hexPrefix(key, 100) + "...");
    if (auto dataRequest = request->dataRequest()) {
        dataRequest->respond(key);
    }
    request->finishLoading();
}

}  // namespace zarvo
