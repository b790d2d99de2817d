#include "core/authenticity/known_vendors.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "core/startup/launchd_inventory.hpp"

namespace orvane {
namespace {

using namespace vendor_match;

TEST(KnownVendors, TableShape) {
    const auto& table = knownVendors();
    ASSERT_EQ(table.size(), 83u);
    // Verified rows come first, so that an unverified row never shadows one that may accuse.
    const auto firstUnverified = std::ranges::find_if(table, [](const KnownVendor& v) { return !v.verified; });
    EXPECT_EQ(firstUnverified - table.begin(), 41);
    EXPECT_TRUE(std::all_of(firstUnverified, table.end(), [](const KnownVendor& v) { return !v.verified; }));
    EXPECT_EQ(table[40].vendor, "Learning Machines");
    EXPECT_EQ(table[41].vendor, "Slack");
    EXPECT_EQ(table[82].vendor, "Bitwarden");
    for (const auto& row : table) {
        SCOPED_TRACE(row.vendor);
        EXPECT_LE(row.teamIDs.size(), 1u);
        for (const auto& team : row.teamIDs) EXPECT_TRUE(isTeamID(team));
        EXPECT_FALSE(row.bundleIDs.empty() && row.names.empty());
    }
}

TEST(KnownVendors, Matching) {
    const std::optional<std::string> none;
    const struct {
        std::string name, bundleID;
        std::optional<std::string> team;
        VendorMatch expected;
    } cases[] = {
        // Name found with spaces around it, in any case, with ".app".
        {"  gOOGLE cHROME.APP\t", "", "EQHXZ8M8AV", {Matches{"Google", "EQHXZ8M8AV"}}},
        // Identifiers compare exactly: another case needs the name.
        {"", "COM.GOOGLE.CHROME", "EQHXZ8M8AV", {}},
        {"", "com.google.Chrome", "EQHXZ8M8AV", {Matches{"Google", "EQHXZ8M8AV"}}},
        {"", "com.microsoft.edgemac", "UBF8T346G9", {MatchesUnverified{"Microsoft (Edge)", "UBF8T346G9"}}},
        {"Kindle", "", "ABCDE12345", {Mismatch{"Amazon", {"94KV3E626L"}, "ABCDE12345"}}},
        // An unverified row never accuses.
        {"Slack", "com.tinyspeck.slackmacgap", "ABCDE12345", {}},
        {"Slack", "", "BQR82RBBHL", {MatchesUnverified{"Slack", "BQR82RBBHL"}}},
        // No team at all on a verified row's app.
        {"Claude", "", none, {Mismatch{"Anthropic", {"Q6L2SF6YDW"}, none}}},
        // A verified row without a team accuses every copy.
        {"Audacity", "org.audacityteam.Audacity", "AAAAAAAAAA", {Mismatch{"Audacity", {}, "AAAAAAAAAA"}}},
        {"Some Editor", "com.example.editor", "EQHXZ8M8AV", {}},
        {"", "", none, {}},
        // ".app" alone leaves no name to compare.
        {".app", "", none, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name + " / " + c.bundleID);
        EXPECT_EQ(vendorMatch(c.name, c.bundleID, c.team), c.expected);
    }
}

TEST(KnownVendors, EarlierRowsNameBeatsLaterRowsIdentifier) {
    const std::vector<KnownVendor> table = {
        {"First", {"AAAAAAAAAA"}, {}, {"Shared"}, true},
        {"Second", {"BBBBBBBBBB"}, {"com.second.app"}, {}, true},
    };
    EXPECT_EQ(knownVendor("Shared", "com.second.app", table)->vendor, "First");
    // Expected teams come sorted whatever the set held.
    const std::vector<KnownVendor> two = {{"Two", {"ZZZZZZZZZZ", "AAAAAAAAAA"}, {}, {"Two"}, true}};
    EXPECT_EQ(vendorMatch("Two", "", "QQQQQQQQQQ", two),
              (VendorMatch{Mismatch{"Two", {"AAAAAAAAAA", "ZZZZZZZZZZ"}, "QQQQQQQQQQ"}}));
}

TEST(KnownVendors, JSONForms) {
    const std::pair<VendorMatch, std::string> cases[] = {
        {{Matches{"Google", "EQHXZ8M8AV"}}, R"({"matches":{"vendor":"Google","teamID":"EQHXZ8M8AV"}})"},
        {{MatchesUnverified{"Slack", "BQR82RBBHL"}}, R"({"matchesUnverified":{"vendor":"Slack","teamID":"BQR82RBBHL"}})"},
        {{Mismatch{"Amazon", {"94KV3E626L"}, "ABCDE12345"}},
         R"({"mismatch":{"vendor":"Amazon","expected":["94KV3E626L"],"actual":"ABCDE12345"}})"},
        {{Mismatch{"Audacity", {}, std::nullopt}}, R"({"mismatch":{"vendor":"Audacity","expected":[]}})"},
        {{NotListed{}}, R"({"notListed":{}})"},
    };
    for (const auto& [match, text] : cases) {
        EXPECT_EQ(toJSON(match).dump(), text);
        EXPECT_EQ(vendorMatchFromJSON(nlohmann::json::parse(text)), match);
    }
    EXPECT_FALSE(vendorMatchFromJSON(nlohmann::json::parse(R"({"matches":{"vendor":"X"}})")));
    EXPECT_FALSE(vendorMatchFromJSON(nlohmann::json::parse(R"({"sortOf":{}})")));
}

}  // namespace
}  // namespace orvane
