#include <gtest/gtest.h>

#include "zarvo/platform/HttpUrlResponse.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {
namespace {

Url exampleUrl() {
    return *Url::parse("https://licence.example/ksm?id=1");
}

TEST(UrlRequestTest, RequestAndResponseHeadersMatchWithoutCase) {
    UrlRequest request(exampleUrl());
    request.setValue("application/octet-stream", "Content-Type");
    request.setValue("text/plain", "content-type");
    request.addValue("a", "X-List");
    request.addValue("b", "x-list");

    EXPECT_EQ(request.value("CONTENT-TYPE"), "text/plain");
    EXPECT_EQ(request.value("X-List"), "a,b");
    EXPECT_FALSE(request.value("Authorization"));
    ASSERT_EQ(request.allHttpHeaderFields().size(), 3u);
    EXPECT_EQ(request.allHttpHeaderFields()[0].first, "Content-Type");

    request.setValue("c", "X-LIST");
    EXPECT_EQ(request.value("x-list"), "c");
    EXPECT_EQ(request.allHttpHeaderFields().size(), 2u);

    HttpUrlResponse response{exampleUrl(),
                             200,
                             {{"Content-Type", " Application/X-MpegURL ; charset=utf-8"},
                              {"Set-Cookie", "a=1"},
                              {"set-cookie", "b=2"}},
                             42};
    EXPECT_EQ(response.value("content-type"), " Application/X-MpegURL ; charset=utf-8");
    EXPECT_EQ(response.value("SET-COOKIE"), "b=2");
    EXPECT_EQ(response.mimeType(), "application/x-mpegurl");

    HttpUrlResponse untyped{exampleUrl(), 204, {}, -1};
    EXPECT_FALSE(untyped.mimeType());
    EXPECT_FALSE(untyped.value("Content-Type"));
}

TEST(UrlErrorTest, ErrorsCarryDomainCodeDescriptionAndFailingUrl) {
    Error error = makeUrlError(UrlError::timedOut, "https://cdn.example/a.ts", "no bytes");

    EXPECT_EQ(error.domain(), "NSURLErrorDomain");
    EXPECT_EQ(error.code(), -1001);
    EXPECT_TRUE(isUrlError(error, UrlError::timedOut));
    EXPECT_FALSE(isUrlError(error, UrlError::cancelled));
    EXPECT_EQ(error.userInfoValue("NSErrorFailingURLStringKey"), "https://cdn.example/a.ts");
    EXPECT_FALSE(error.localizedDescription().empty());
    EXPECT_NE(makeUrlError(UrlError::cancelled).localizedDescription(),
              makeUrlError(UrlError::networkConnectionLost).localizedDescription());
    EXPECT_FALSE(makeUrlError(UrlError::cancelled).userInfoValue("NSErrorFailingURLStringKey"));
    EXPECT_FALSE(isUrlError(Error::withDescription("Other", -1001, "x"), UrlError::timedOut));
}

}  // namespace
}  // namespace zarvo
