#include "core/cloud/provider_json.hpp"

#include <gtest/gtest.h>

#include "core/cloud/oauth.hpp"
#include "core/cloud/provider_text.hpp"

namespace orvane {
namespace {

TEST(ProviderJSON, ReadersTakeOnlyTheirType) {
    EXPECT_FALSE(parseJSONDict("[1]"));
    EXPECT_FALSE(parseJSONDict("{\"a\":"));
    const auto dict = parseJSONDict(R"({"n": 12, "f": 12.9, "t": "-42", "p": "+7", "big": "9223372036854775808",
        "u": 18446744073709551615, "b": true, "one": 1, "e": "", "sign": "-", "both": "+-3", "x": "12a", "s": "s"})");
    ASSERT_TRUE(dict);
    const std::vector<std::pair<const char*, std::optional<std::int64_t>>> numbers = {
        {"n", 12}, {"f", 12}, {"t", -42}, {"p", 7}, {"big", std::nullopt}, {"u", std::nullopt}, {"b", std::nullopt},
        {"e", std::nullopt}, {"sign", std::nullopt}, {"both", std::nullopt}, {"x", std::nullopt}, {"gone", std::nullopt}};
    for (const auto& [key, expected] : numbers) EXPECT_EQ(jsonInt64(*dict, key), expected) << key;
    EXPECT_EQ(jsonString(*dict, "s"), "s");
    EXPECT_FALSE(jsonString(*dict, "n"));
    EXPECT_EQ(jsonBool(*dict, "b"), true);
    EXPECT_FALSE(jsonBool(*dict, "one"));
}

TEST(ProviderJSON, TokenAnswersAndErrorSummaries) {
    EXPECT_EQ(oauthTokenUpdate(R"({"access_token": " a1 \n", "refresh_token": "r1"})"), (OAuthTokenUpdate{"a1", "r1"}));
    EXPECT_EQ(oauthTokenUpdate(R"({"access_token": "a1", "refresh_token": "  "})"), (OAuthTokenUpdate{"a1", std::nullopt}));
    EXPECT_FALSE(oauthTokenUpdate(R"({"access_token": " ", "refresh_token": "r1"})"));
    EXPECT_FALSE(oauthTokenUpdate("not json"));

    EXPECT_EQ(oauthErrorSummary(R"({"error": "invalid_grant"})", 80), "invalid_grant");
    EXPECT_EQ(oauthErrorSummary(R"({"error": 7, "error_description": "Bad\u0007code\r\n  given"})", 80), "Bad code given");
    EXPECT_EQ(oauthErrorSummary(R"({"error": "invalid_grant", "error_description": "Token expired"})", 16),
              "invalid_grant: …");
    EXPECT_FALSE(oauthErrorSummary(R"({"error": "\u007f "})", 80));
    EXPECT_FALSE(oauthErrorSummary("[]", 80));

    // Characters, not bytes: the accented letter is one, written as two code points.
    EXPECT_EQ(sanitizedClamp("e\xCC\x81tude longue", 3), "e\xCC\x81t…");
    EXPECT_EQ(sanitizedClamp("abcdef", 1), "a…");
    EXPECT_EQ(sanitizedClamp("abc", 3), "abc");
}

TEST(ProviderJSON, LoopbackCallbackTarget) {
    const std::string request = "GET /callback?code=abc&state=s%201 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    EXPECT_EQ(oauthLoopbackCallbackTarget(request, "/callback", "s 1"), "/callback?code=abc&state=s%201");
    EXPECT_EQ(oauthLoopbackCallbackTarget(request, "", std::nullopt), "/callback?code=abc&state=s%201");
    EXPECT_FALSE(oauthLoopbackCallbackTarget(request, "/callback", "s1"));
    EXPECT_FALSE(oauthLoopbackCallbackTarget(request, "/other", std::nullopt));
    EXPECT_FALSE(oauthLoopbackCallbackTarget("POST /callback?state=s HTTP/1.1\r\n", "/callback", std::nullopt));
    EXPECT_FALSE(oauthLoopbackCallbackTarget("GET /callback?code=1&state= HTTP/1.1\r\n", "/callback", std::nullopt));
    EXPECT_FALSE(oauthLoopbackCallbackTarget("GET /callback HTTP/1.1\r\n", "/callback", std::nullopt));
    EXPECT_FALSE(oauthLoopbackCallbackTarget("\r\nGET /callback?state=s HTTP/1.1\r\n", "/callback", std::nullopt));
}

TEST(ProviderJSON, LedgerAccountMarker) {
    EXPECT_EQ(ledgerAccountMarker(" Alex.Doe@Example.COM  "), "connected (account at example.com)");
    EXPECT_EQ(ledgerAccountMarker("alex@localhost"), "connected");
    EXPECT_EQ(ledgerAccountMarker("Alex Doe"), "connected");
}

}  // namespace
}  // namespace orvane
