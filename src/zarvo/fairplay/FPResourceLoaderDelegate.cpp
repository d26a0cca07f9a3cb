#include "zarvo/fairplay/FPResourceLoaderDelegate.h"

#include <cstdio>
#include <filesystem>
#include <iostream>

#include "zarvo/media/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/AssetResourceLoadingDataRequest.h"
#include "zarvo/media/AssetResourceLoadingRequest.h"
#include "zarvo/offline/FPDownloadError.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/UrlComponents.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

namespace zarvo {
namespace {

constexpr double keyExchangeTimeout = 60;

std::string hexPrefix(const Data& data, std::size_t characters) {
    std::string text;
    char digits[3];
    for (unsigned char byte : data) {
        if (text.size() >= characters) {
            break;
        }
        std::snprintf(digits, sizeof digits, "%02hhx", byte);
        text += digits;
    }
    return text.substr(0, characters);
}

// Sends `request` through the shared session and waits for its body; nothing without one.
std::optional<Data> fetchAndWait(UrlRequest request) {
    auto semaphore = std::make_shared<DispatchSemaphore>(0);
    auto body = std::make_shared<std::optional<Data>>();
    UrlSession::shared()
        ->dataTask(std::move(request),
                   [semaphore, body](std::optional<Data> data, std::optional<HttpUrlResponse>,
                                     std::optional<Error>) {
                       *body = std::move(data);
                       semaphore->signal();
                   })
        ->resume();
    semaphore->wait();
    return *body;
}

// The licence URL with the download's query items after its own, or without a query when the
// download has none.
std::optional<Url> licenseRequestUrl(const ZMOfflineDownload& download) {
    UrlComponents components(*download.licenseUrl());
    if (const auto& extra = download.licenseUrlQueryItems()) {
        auto items = components.queryItems().value_or(std::vector<UrlQueryItem>{});
        items.insert(items.end(), extra->begin(), extra->end());
        components.setQueryItems(items);
    } else {
        components.setQueryItems(std::nullopt);
    }
    return components.url();
}

}  // namespace

FPResourceLoaderDelegate::FPResourceLoaderDelegate(std::weak_ptr<ZMOfflineDownload> download)
    : queue_(DispatchQueue::serial("com.zarvo.mediaplayer.offline.resourcerequests")),
      download_(std::move(download)) {
    std::cout << "RESOURCE LOADER ::: INIT" << std::endl;
}

FPResourceLoaderDelegate::FPResourceLoaderDelegate() {
    fatalError("init() has not been implemented");
}

FPResourceLoaderDelegate::~FPResourceLoaderDelegate() {
    std::cout << "RESOURCE LOADER ::: DEINIT" << std::endl;
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
    std::cout << "[OstraCDNOfflineFairPlay] Resource loader did cancel." << std::endl;
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

std::string FPResourceLoaderDelegate::keyFilePath(const std::string& assetId) const {
    auto download = download_.lock();
    if (!download) {
        fatalError("Download not set.");
    }
    return (std::filesystem::path(download->contentKeysDirPath().decodedPath()) /
            (assetId + "-Key"))
        .string();
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
    const std::string path = keyFilePath(*assetId);
    std::error_code ignored;
    const bool exists = std::filesystem::exists(path, ignored);
    std::cout << "[OstraCDNOfflineFairPlay] Content key exists in app directory: "
              << (exists ? "true" : "false") << std::endl;
    if (exists) {
        serveFromDisk(request, path);
        return;
    }
    auto key = fetchFromServer(request, *assetId, path);
    if (auto* error = std::get_if<Error>(&key)) {
        std::cout << "[OstraCDNOfflineFairPlay] Error during obtaining key. "
                  << error->localizedDescription() << "\n"
                  << std::endl;
        request->finishLoading(*error);
        return;
    }
    const Data& persistentKey = std::get<Data>(key);
    std::cout << "🌸 CONTENT KEY FROM SERVER: " << hexPrefix(persistentKey, 100) << "..."
              << std::endl;
    if (auto data = request->dataRequest()) {
        data->respond(persistentKey);
    }
    request->finishLoading();
}

void FPResourceLoaderDelegate::serveFromDisk(
    const std::shared_ptr<AssetResourceLoadingRequest>& request, const std::string& path) {
    auto key = DataFile::read(path);
    if (!key) {
        request->finishLoading(makeFPDownloadError(FPDownloadError::keyNotFoundLocally));
        std::cout << "[OstraCDNOfflineFairPlay] 💥 Failed to loaded key from disk." << std::endl;
        return;
    }
    std::cout << "🍀 [OstraCDNOfflineFairPlay] Key from disk: " << hexPrefix(*key, 32) << "..."
              << std::endl;
    if (auto data = request->dataRequest()) {
        data->respond(*key);
    }
    request->finishLoading();
}

std::variant<Data, Error> FPResourceLoaderDelegate::fetchFromServer(
    const std::shared_ptr<AssetResourceLoadingRequest>& request, const std::string& assetId,
    const std::string& path) {
    auto download = download_.lock();
    if (!download || !download->fpsCertUrl()) {
        return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
    }
    auto certificate = fetchAndWait(UrlRequest(
        *download->fpsCertUrl(), UrlRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData,
        keyExchangeTimeout));
    if (!certificate) {
        return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
    }

    auto spc = request->streamingContentKeyRequestData(
        *certificate, Data(assetId),
        {{AssetResourceLoadingRequest::streamingContentKeyRequestRequiresPersistentKey, true}});
    if (auto* error = std::get_if<Error>(&spc)) {
        return *error;
    }

    download = download_.lock();
    if (!download || !download->licenseUrl()) {
        return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
    }
    auto licenseUrl = licenseRequestUrl(*download);
    if (!licenseUrl) {
        return makeFPDownloadError(FPDownloadError::missingApplicationCertificate);
    }
    UrlRequest post(*licenseUrl, UrlRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData,
                    keyExchangeTimeout);
    post.httpMethod = "POST";
    post.httpBody = std::get<Data>(std::move(spc));
    for (const auto& [name, value] : download->headers()) {
        if (name != "Content-Type") {
            post.setValue(value, name);
        }
    }
    post.setValue("application/octet-stream", "Content-Type");
    download.reset();
    auto ckc = fetchAndWait(std::move(post));
    if (!ckc) {
        return makeFPDownloadError(FPDownloadError::noCKCReturnedByKSM);
    }
    std::cout << "🎈CKC DATA: " << hexPrefix(*ckc, 32) << std::endl;

    auto key = request->persistentContentKey(*ckc);
    if (auto* error = std::get_if<Error>(&key)) {
        return *error;
    }
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (!DataFile::writeAtomically(
            path, std::get<Data>(key),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)) {
        return makeUrlError(UrlError::cannotWriteToFile, Url::fileUrl(path).absoluteString());
    }
    return key;
}

}  // namespace zarvo
