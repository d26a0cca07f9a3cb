#include <gtest/gtest.h>

#include "zarvo/media/model/ContentKeyRequest.h"

namespace zarvo {
namespace {

const Data certificate = ContentKeyRequest::makeCertificate("cert-7");
const Data key = Data("0123456789abcdef");

long errorCode(const std::variant<ContentKeyRequest, Error>& result) {
    const auto* error = std::get_if<Error>(&result);
    return error ? error->code() : 0;
}

TEST(ContentKeyRequest, RoundTripsThroughItsWireForm) {
    auto made = ContentKeyRequest::make(certificate, "zm-sample-1", true);
    ASSERT_TRUE(std::holds_alternative<ContentKeyRequest>(made));
    const auto& request = std::get<ContentKeyRequest>(made);
    EXPECT_EQ(request.certificateIdentifier, "cert-7");

    const Data wire = request.encode();
    EXPECT_EQ(
        wire,
        R"({"version":1,"contentId":"zm-sample-1","persistent":true,"certificate":"cert-7"})");
    auto decoded = ContentKeyRequest::decode(wire);
    ASSERT_TRUE(std::holds_alternative<ContentKeyRequest>(decoded));
    EXPECT_EQ(std::get<ContentKeyRequest>(decoded), request);
}

TEST(ContentKeyRequest, MakeAndDecodeNameWhatIsWrong) {
    using Code = ContentKeyRequest::ErrorCode;
    for (const auto& [cert, id, code] :
         {std::tuple{Data("not a certificate"), "id", Code::invalidCertificate},
          {Data(), "id", Code::invalidCertificate},
          {certificate, "", Code::invalidContentId}}) {
        EXPECT_EQ(errorCode(ContentKeyRequest::make(cert, id, false)), static_cast<long>(code))
            << id;
    }
    // A certificate of another format version, or a persistent key, is no certificate.
    EXPECT_EQ(ContentKeyRequest::identifierOfCertificate(Data("ZMFC\x02id", 7)), std::nullopt);
    EXPECT_EQ(ContentKeyRequest::identifierOfCertificate(Data("ZMPK\x01id", 7)), std::nullopt);

    const std::pair<const char*, Code> cases[] = {
        {"", Code::malformedRequest},
        {"zm-sample-1", Code::malformedRequest},
        {"[1,2]", Code::malformedRequest},
        {R"({"contentId":"a","persistent":false,"certificate":"c"})", Code::malformedRequest},
        {R"({"version":2,"contentId":"a","persistent":false,"certificate":"c"})",
         Code::unsupportedVersion},
        {R"({"version":1,"persistent":false,"certificate":"c"})", Code::malformedRequest},
        {R"({"version":1,"contentId":"a","persistent":"yes","certificate":"c"})",
         Code::malformedRequest},
        {R"({"version":1,"contentId":"a","persistent":false})", Code::malformedRequest},
        {R"({"version":1,"contentId":"","persistent":false,"certificate":"c"})",
         Code::invalidContentId},
    };
    for (const auto& [body, code] : cases) {
        auto result = ContentKeyRequest::decode(body);
        ASSERT_TRUE(std::holds_alternative<Error>(result)) << body;
        const auto& error = std::get<Error>(result);
        EXPECT_EQ(error.domain(), ContentKeyRequest::errorDomain);
        EXPECT_EQ(error.code(), static_cast<long>(code)) << body;
        EXPECT_FALSE(error.localizedDescription().empty());
    }
    // Members it does not know are ignored.
    auto extra = ContentKeyRequest::decode(
        R"({"version":1,"contentId":"a","persistent":false,"certificate":"c","x":[1]})");
    EXPECT_TRUE(std::holds_alternative<ContentKeyRequest>(extra));
}

TEST(ContentKeyRequest, KeyResponsesAndPersistentKeysHoldExactlySixteenBytes) {
    EXPECT_EQ(ContentKeyRequest::contentKey(key), key);
    EXPECT_EQ(ContentKeyRequest::contentKey(key.substr(1)), std::nullopt);
    EXPECT_EQ(ContentKeyRequest::contentKey(key + "x"), std::nullopt);
    EXPECT_EQ(ContentKeyRequest::contentKey("Unknown content identifier."), std::nullopt);

    auto persistent = ContentKeyRequest::makePersistentKey(key);
    ASSERT_TRUE(persistent);
    EXPECT_EQ(persistent->size(), 21u);
    EXPECT_EQ(persistent->substr(0, 5), Data("ZMPK\x01", 5));
    EXPECT_EQ(ContentKeyRequest::contentKeyFromPersistentKey(*persistent), key);

    EXPECT_EQ(ContentKeyRequest::makePersistentKey("short"), std::nullopt);
    EXPECT_EQ(ContentKeyRequest::contentKeyFromPersistentKey(key), std::nullopt);
    Data wrongVersion = *persistent;
    wrongVersion[4] = 2;
    EXPECT_EQ(ContentKeyRequest::contentKeyFromPersistentKey(wrongVersion), std::nullopt);
    EXPECT_EQ(ContentKeyRequest::contentKeyFromPersistentKey(persistent->substr(0, 20)),
              std::nullopt);
}

}  // namespace
}  // namespace zarvo
