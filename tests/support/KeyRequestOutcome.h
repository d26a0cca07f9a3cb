#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/AssetResourceLoaderDelegate.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo::test {

// Offers a key request for `url` (with a content-information request, unless not
// `withContentInformation`) to `delegate` as `loader`'s delegate and runs the main loop until
// it ends (the delegate may end it on a queue of its own); nothing when it was declined.
inline std::optional<AssetResourceLoadingRequest::Outcome> keyRequestOutcome(
    AssetResourceLoaderDelegate& delegate, AssetResourceLoader& loader, const std::string& url,
    bool withContentInformation = true) {
    using Outcome = AssetResourceLoadingRequest::Outcome;
    struct Ended {
        std::mutex mutex;
        std::optional<Outcome> outcome;
    };
    auto ended = std::make_shared<Ended>();
    auto request = std::make_shared<AssetResourceLoadingRequest>(
        UrlRequest(*Url::parse(url)), withContentInformation, true, [ended](const Outcome& done) {
            std::lock_guard lock(ended->mutex);
            ended->outcome = done;
        });
    if (!delegate.shouldWaitForLoadingOfRequestedResource(loader, request)) {
        return std::nullopt;
    }
    auto outcome = [&] {
        std::lock_guard lock(ended->mutex);
        return ended->outcome;
    };
    EXPECT_TRUE(
        RunLoop::main().runUntil([&] { return outcome().has_value(); }, std::chrono::seconds(20)));
    return outcome();
}

}  // namespace zarvo::test
