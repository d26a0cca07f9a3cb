#include "zarvo/media/loopback/KeyHandler.h"

#include "zarvo/media/loopback/LoopbackResponse.h"
#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/UrlAsset.h"

namespace zarvo {

// One content key being loaded through the resource loader.
struct KeyHandler::KeyWait {
    std::shared_ptr<AssetResourceLoadingRequest> request;
    bool accepted = false;
    bool done = false;
    std::optional<Data> key;
    std::optional<Error> error;
};

namespace {

// The key in a resource loader's answer: a content key, or one wrapped as a persistent key.
std::variant<Data, Error> keyFrom(const AssetResourceLoadingRequest::Outcome& outcome,
                                  const Url& url) {
    if (outcome.error) {
        return makeMediaError(MediaError::resourceLoadingFailed,
                              "The resource loader failed to load " + url.absoluteString() + ": " +
                                  outcome.error->localizedDescription(),
                              outcome.error);
    }
    const bool persistent = outcome.contentType ==
                            AssetResourceLoadingContentInformationRequest::persistentContentKeyType;
    auto key = persistent ? ContentKeyRequest::contentKeyFromPersistentKey(outcome.data)
                          : ContentKeyRequest::contentKey(outcome.data);
    if (!key && !persistent) {
        key = ContentKeyRequest::contentKeyFromPersistentKey(outcome.data);
    }
    if (!key) {
        return makeMediaError(MediaError::invalidContentKey,
                              "The answer to " + url.absoluteString() + " is not a content key (" +
                                  std::to_string(outcome.data.size()) + " bytes).");
    }
    return std::move(*key);
}

}  // namespace

void KeyHandler::serve(LoopbackResponse& response, const Url& url) {
    std::optional<Error> error;
    std::optional<Data> key;
    {
        std::lock_guard lock(session_.mutex_);
        if (auto known = keys_.find(url.absoluteString()); known != keys_.end()) {
            key = known->second;
        }
    }
    if (!key) {
        key = url.isHttp() || url.isFileUrl() ? fetch(url, error) : loadThroughDelegate(url, error);
    }
    if (key) {
        response.status = 200;
        response.setContent(std::move(*key), "application/octet-stream");
        return;
    }
    response.status = session_.isClosed() ? 404 : 403;
    if (error) {
        response.setContent(error->localizedDescription(), "text/plain");
    }
}

std::optional<Data> KeyHandler::fetch(const Url& url, std::optional<Error>& error) {
    auto result = session_.awaitFetch(
        [&](AssetLoader::FetchDone done) { session_.loader_->fetch(url, std::move(done)); });
    if (!result) {
        return std::nullopt;
    }
    if (result->error || result->statusCode < 200 || result->statusCode >= 300) {
        error = result->error ? makeTransportError(url, *result->error)
                              : makeStatusError(url, result->statusCode);
        session_.recordFailure(*error);
        return std::nullopt;
    }
    return std::move(result->body);
}

std::optional<Data> KeyHandler::loadThroughDelegate(const Url& url, std::optional<Error>& error) {
    std::shared_ptr<KeyWait> wait;
    bool first = false;
    {
        std::lock_guard lock(session_.mutex_);
        auto& slot = waits_[url.absoluteString()];
        first = !slot;
        if (first) {
            slot = std::make_shared<KeyWait>();
        }
        wait = slot;
    }
    if (first) {
        auto settle = [weakSession = session_.weak_from_this(), wait,
                       url](std::variant<Data, Error> outcome) {
            auto session = weakSession.lock();
            if (!session) {
                return;
            }
            auto& handler = *session->keys_;
            {
                std::lock_guard lock(session->mutex_);
                wait->done = true;
                if (auto* key = std::get_if<Data>(&outcome)) {
                    wait->key = *key;
                    handler.keys_[url.absoluteString()] = *key;
                } else {
                    wait->error = std::get<Error>(outcome);
                }
                handler.waits_.erase(url.absoluteString());
            }
            session->wake();
            if (wait->error) {
                session->failPlayback(*wait->error);
            }
        };
        wait->request = std::make_shared<AssetResourceLoadingRequest>(
            UrlRequest(url), true, true,
            [settle, url](const AssetResourceLoadingRequest::Outcome& outcome) {
                settle(keyFrom(outcome, url));
            });
        session_.asset_->resourceLoader()->offer(
            wait->request, false,
            [weakSession = session_.weak_from_this(), wait, settle, url](bool accepted) {
                if (accepted) {
                    if (auto session = weakSession.lock()) {
                        std::lock_guard lock(session->mutex_);
                        wait->accepted = true;
                    }
                    return;
                }
                if (wait->request->cancel()) {
                    settle(makeMediaError(
                        MediaError::resourceLoadingFailed,
                        "The resource loader declined " + url.absoluteString() + "."));
                }
            });
    }
    if (!session_.waitUntil([&] { return wait->done; })) {
        return std::nullopt;
    }
    error = wait->error;
    return wait->key;
}

void KeyHandler::close() {
    std::map<std::string, std::shared_ptr<KeyWait>> waits;
    {
        std::lock_guard lock(session_.mutex_);
        waits = waits_;
    }
    for (const auto& [uri, wait] : waits) {
        bool accepted = false;
        {
            std::lock_guard lock(session_.mutex_);
            accepted = wait->accepted;
        }
        if (wait->request && wait->request->cancel() && accepted) {
            session_.asset_->resourceLoader()->notifyCancelled(wait->request);
        }
    }
}

}  // namespace zarvo
