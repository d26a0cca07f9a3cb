#include <cstdlib>
#include <future>

#include <gtest/gtest.h>

#include "zarvo/tracking/ZMTrackingNetworkOperation.h"
#include "zarvo/tracking/ZMTrackingUrlCreator.h"

#include "TrackingTestSupport.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using test::TestHttpServer;
using Kind = ZMTrackingSessionError::Kind;

// Runs one operation and waits for its result.
std::optional<ZMTrackingSessionError> send(const ZMTrackingUrlCreator& creator) {
    ZMTrackingNetworkOperation operation(creator, UrlSession::make({}));
    std::promise<std::optional<ZMTrackingSessionError>> promise;
    auto result = promise.get_future();
    operation.start([&](auto failure) { promise.set_value(std::move(failure)); });
    if (result.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        std::abort();  // the operation would outlive the promise
    }
    return result.get();
}

TEST(TrackingUrlCreatorTest, AppendsTheBeaconFileEncodesTheQueryAndRejectsNonUrls) {
    ZMTrackingUrlCreator creator{"http://127.0.0.1:9/track/a",
                                 ZMTrackingSessionUrlPath::initialize,
                                 {{"sessionId", "a b&c=d+e"}, {"events", "1,2,3,x;y"}}};
    auto url = std::get<Url>(creator.url());
    EXPECT_EQ(url.path(), "/track/a/init.gif");
    EXPECT_EQ(url.query(), "sessionId=a%20b%26c%3Dd%2Be&events=1,2,3,x;y");
    creator.path = ZMTrackingSessionUrlPath::report;
    creator.endpointUrl = "http://127.0.0.1:9/";
    EXPECT_EQ(std::get<Url>(creator.url()).path(), "/events.gif");

    for (std::string endpoint : {"", "http://exa mple.com/t", "ht tp://x"}) {
        creator.endpointUrl = endpoint;
        EXPECT_EQ(std::get<ZMTrackingSessionError>(creator.url()),
                  ZMTrackingSessionError::wrongEndpointUrl(endpoint));
    }
    EXPECT_EQ(ZMTrackingUrlCreator::describe({{"a", "1"}, {"b", std::nullopt}}), "[a=1, b]");
}

TEST(TrackingNetworkOperationTest, SendsAPlainGetAndMapsStatusesDropsAndWrongEndpointsToErrors) {
    TestHttpServer server;
    auto creator = [&](ZMTrackingSessionUrlPath path = ZMTrackingSessionUrlPath::report) {
        return ZMTrackingUrlCreator{
            server.url("/t"), path, {{"version", "V1"}, {"events", "9,1,2,a,b;c"}}};
    };
    server.on("/t/events.gif", TestHttpServer::Response::text("", 204));
    EXPECT_EQ(send(creator()), std::nullopt);
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].body, "");
    EXPECT_EQ(requests[0].rawQuery, "version=V1&events=9,1,2,a,b;c");

    for (int status : {404, 500, 300}) {
        server.on("/t/init.gif",
                  TestHttpServer::Response::text("nope " + std::to_string(status), status));
        EXPECT_EQ(send(creator(ZMTrackingSessionUrlPath::initialize)),
                  ZMTrackingSessionError::serverError(status, "nope " + std::to_string(status)));
    }
    server.on("/t/init.gif", TestHttpServer::Response::text(std::string("\xff\xfe", 2), 503));
    EXPECT_EQ(send(creator(ZMTrackingSessionUrlPath::initialize)),
              ZMTrackingSessionError::serverError(503, ""));

    server.on("/t/events.gif", TestHttpServer::Response::dropped());
    auto failure = send(creator());
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), Kind::connectionError);
    EXPECT_TRUE(failure->isRetryable());
    EXPECT_TRUE(failure->error().has_value());

    // A wrong endpoint fails at once, without a request.
    ZMTrackingNetworkOperation operation({"not a url", ZMTrackingSessionUrlPath::report, {}},
                                         UrlSession::make({}));
    std::optional<ZMTrackingSessionError> result;
    operation.start([&](std::optional<ZMTrackingSessionError> failure) { result = failure; });
    EXPECT_EQ(result, ZMTrackingSessionError::wrongEndpointUrl("not a url"));
    EXPECT_EQ(operation.dataTask(), nullptr);
}

}  // namespace
}  // namespace zarvo
