#include "core/update/update_feed.hpp"

#include <gtest/gtest.h>

#include "core/common/base64.hpp"
#include "core/update/version_order.hpp"
#include "tests/support/test_signer.hpp"

namespace orvane {
namespace {

using testing::TestSigner;

TEST(UpdateFeed, OnlyTheExactSignedBytesVerify) {
    const TestSigner signer;
    const std::string key = signer.publicKeyBase64();
    const std::string feed = R"({"version":"2.0","download_url":"https://example.com/a.zip"})";
    const std::string signature = signer.sign(feed);
    std::string tampered = feed;
    tampered[12] = '3';
    const std::string shortKey = base64Encoded(std::string(31, 'k'));

    const FeedVerdict unreadable = feed::Rejected{"this build's update key is unreadable"};
    const FeedVerdict unsignedFeed = feed::Rejected{"the update information arrived without a signature"};
    const FeedVerdict mismatch = feed::Rejected{"the update information didn't match its signature"};
    EXPECT_EQ(verifyFeed(feed, signature, key), FeedVerdict(feed::Verified{}));
    EXPECT_EQ(verifyFeed("\xFF not json", std::nullopt, ""), FeedVerdict(feed::UnsignedButAllowed{}));
    EXPECT_EQ(verifyFeed(feed, std::nullopt, key), unsignedFeed);
    EXPECT_EQ(verifyFeed(feed, std::string(), key), unsignedFeed);
    EXPECT_EQ(verifyFeed(tampered, signature, key), mismatch);
    EXPECT_EQ(verifyFeed(feed, signature.substr(0, 63), key), mismatch);
    EXPECT_EQ(verifyFeed(feed, std::string(64, '\0'), key), mismatch);
    EXPECT_EQ(verifyFeed(feed, signature, TestSigner().publicKeyBase64()), mismatch);
    EXPECT_EQ(verifyFeed(feed, signature, shortKey), unreadable);
    EXPECT_EQ(verifyFeed(feed, signature, "not base64!"), unreadable);
    EXPECT_EQ(verifyFeed(feed, signature, key + "\n"), unreadable);

    EXPECT_TRUE(verifyEdSignature(feed, base64Encoded(signature), key));
    EXPECT_FALSE(verifyEdSignature(tampered, base64Encoded(signature), key));
    EXPECT_FALSE(verifyEdSignature(feed, "@@@@", key));
    EXPECT_FALSE(verifyEdSignature(feed, base64Encoded(signature), ""));
    // The built-in key is a real one.
    EXPECT_NE(verifyFeed(feed, signature, updateFeedPublicKeyBase64), unreadable);
}

TEST(UpdateFeed, ALatestNeedsItsTwoAddressesAndTextEverywhere) {
    auto decode = [](const char* text) { return decodeLatest(nlohmann::json::parse(text)); };
    const auto full = decode(R"({"version":"1.2","notes":"n","download_url":"https://a/b.dmg","extra":1})");
    ASSERT_TRUE(std::holds_alternative<Latest>(full));
    EXPECT_EQ(std::get<Latest>(full), (Latest{"1.2", "n", std::nullopt, "https://a/b.dmg", std::nullopt}));
    EXPECT_EQ(std::get<std::string>(decode(R"({"version":"1.2"})")), "The update information has no \"download_url\".");
    EXPECT_EQ(std::get<std::string>(decode(R"({"version":2,"download_url":"x"})")),
              "The update information's \"version\" is not text.");
    EXPECT_TRUE(std::holds_alternative<std::string>(decode(R"({"version":"1","download_url":"x","notes":[]})")));
    EXPECT_TRUE(std::holds_alternative<std::string>(decode("[]")));
}

TEST(UpdateFeed, AddressesAreHTTPSWithAHost) {
    EXPECT_EQ(safeWebURL("https://example.com/a"), "https://example.com/a");
    EXPECT_EQ(safeWebURL("HTTPS://example.com/a"), "HTTPS://example.com/a");
    for (const char* refused : {"http://example.com/a", "https://", "https:///a", "file:///etc/passwd", "example.com/a",
                                "javascript:alert(1)", ""})
        EXPECT_EQ(safeWebURL(refused), std::nullopt) << refused;
    EXPECT_EQ(safeWebURL(std::nullopt), std::nullopt);

    EXPECT_EQ(resolvedUpdateFeedURL("  https://mirror.example/feed.json \n", "https://f"), "https://mirror.example/feed.json");
    for (const auto& configured : std::initializer_list<std::optional<std::string>>{std::nullopt, " \t", "http://m/f"})
        EXPECT_EQ(resolvedUpdateFeedURL(configured, "https://f"), "https://f");
}

TEST(VersionOrder, PlaceByPlaceWithUnreadablePartsAsZero) {
    struct Case {
        const char* a;
        const char* b;
        bool newer;
    };
    for (const auto& c : std::initializer_list<Case>{{"1.10", "1.9", true}, {"2", "1.9.9", true}, {"1.0", "1", false},
                                                     {"1.2.0", "1.2", false}, {"1.a", "1.0", false}, {"1..3", "1.2", true},
                                                     {"1.2", "1.10", false}, {"99999999999999999999", "1", false}})
        EXPECT_EQ(isNewerVersion(c.a, c.b), c.newer) << c.a << " than " << c.b;
    EXPECT_EQ(versionCore("2.1.0-beta"), "2.1.0");
    EXPECT_EQ(versionCore("1.2.3+45"), "1.2.3");
    EXPECT_EQ(versionCore("beta"), "beta");
    EXPECT_EQ(versionCore(".5"), ".5");
    EXPECT_TRUE(isDowngrade("2.1.0-beta", "2.0.9"));
    EXPECT_FALSE(isDowngrade("2.1", "2.1.0-rc1"));
    EXPECT_FALSE(isDowngrade("2.1", "2.2"));
}

}  // namespace
}  // namespace orvane
