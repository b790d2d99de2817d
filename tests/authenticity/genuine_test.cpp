#include "core/authenticity/genuine.hpp"

#include <gtest/gtest.h>

#include "core/common/json_files.hpp"
#include "core/common/property_list.hpp"

namespace orvane {
namespace {

using Tier = std::optional<GenuineTier>;
const SignerKind kDevID{signer_kind::DeveloperID{"Google LLC"}};
const SignerKind kAppStore{signer_kind::AppStore{}};
const SignerKind kApple{signer_kind::Apple{}};
const SignerKind kAdHoc{signer_kind::AdHoc{}};
const SignerKind kOther{signer_kind::Other{"Apple Development: x"}};
const SignerKind kUnsigned{signer_kind::Unsigned{}};
const SignatureState kValid{signature_state::Valid{}};
const SignatureState kBroken{signature_state::Broken{}};
const SignatureState kRevoked{signature_state::Revoked{}};
const SignatureState kNotSigned{signature_state::Unsigned{}};
const SignatureState kUnchecked{signature_state::CouldNotCheck{-67050}};
const VendorMatch kMatches{vendor_match::Matches{"Google", "EQHXZ8M8AV"}};
const VendorMatch kUnverified{vendor_match::MatchesUnverified{"Slack", "BQR82RBBHL"}};
const VendorMatch kMismatch{vendor_match::Mismatch{"Google", {"EQHXZ8M8AV"}, "ABCDE12345"}};
const VendorMatch kNotListed{};

TimePoint unix(std::int64_t seconds) { return Clock::from_time_t(static_cast<std::time_t>(seconds)); }

TEST(GenuineTier, Rules) {
    using enum GenuineTier;
    const struct {
        SignerKind signer;
        SignatureState signature;
        bool notarized;
        VendorMatch vendor;
        Tier expected;
    } cases[] = {
        {kDevID, kBroken, true, kMismatch, red},  // a mismatch outranks a broken signature
        {kDevID, kUnchecked, false, kMismatch, red},
        {kDevID, kUnchecked, true, kNotListed, std::nullopt},
        {kDevID, kRevoked, true, kMatches, red},
        {kDevID, kNotSigned, true, kMatches, amber},
        {kDevID, kBroken, true, kMatches, amber},
        {kDevID, kValid, true, kMatches, gold},
        {kDevID, kValid, false, kMatches, green},
        {kDevID, kValid, true, kUnverified, green},
        {kDevID, kValid, true, kNotListed, green},
        {kAppStore, kValid, false, kMatches, gold},  // the App Store needs no notarisation
        {kAppStore, kValid, true, kNotListed, green},
        {kApple, kValid, true, kMatches, green},
        {kOther, kValid, true, kMatches, amber},
        {kAdHoc, kValid, true, kMatches, amber},
        {kUnsigned, kValid, false, kNotListed, amber},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        EXPECT_EQ(genuineTier(c.signer, c.signature, c.notarized, c.vendor), c.expected) << "case " << i;
    }
}

TEST(GenuineTier, WithOnlineResult) {
    GenuineReport gold{"/Applications/Google Chrome.app", kDevID, "EQHXZ8M8AV", kValid, true, true, kMatches, {}};
    EXPECT_EQ(gold.tier(), GenuineTier::gold);
    EXPECT_EQ(gold.tier(std::nullopt), GenuineTier::gold);
    EXPECT_EQ(gold.tier(OnlineGenuineResult{kRevoked, true, false, {}}), GenuineTier::red);
    EXPECT_EQ(gold.tier(OnlineGenuineResult{kBroken, false, {}, {}}), GenuineTier::gold);
    EXPECT_EQ(gold.tier(OnlineGenuineResult{kUnchecked, false, {}, {}}), GenuineTier::gold);
    GenuineReport stale = gold;
    stale.notarizedOffline = false;
    EXPECT_EQ(stale.tier(), GenuineTier::green);
    EXPECT_EQ(stale.tier(OnlineGenuineResult{kValid, true, true, "Notarized Developer ID"}), GenuineTier::gold);
    // Revocation outranks even an offline state that has no tier.
    GenuineReport unchecked = gold;
    unchecked.signature = kUnchecked;
    EXPECT_EQ(unchecked.tier(OnlineGenuineResult{kRevoked, false, {}, {}}), GenuineTier::red);
}

TEST(GenuineSigner, KindFromCommonName) {
    const struct {
        std::optional<std::string> name;
        bool hasSignature;
        SignerKind expected;
    } cases[] = {
        {"Developer ID Application: Google LLC (EQHXZ8M8AV)", false, kUnsigned},
        {std::nullopt, true, kAdHoc},
        {"", true, kAdHoc},
        {"Developer ID Application: Google LLC (EQHXZ8M8AV)", true, {signer_kind::DeveloperID{"Google LLC"}}},
        // Only a ten-character team in upper case is cut, and only at the end.
        {"Developer ID Application: Acme (abcde12345)", true, {signer_kind::DeveloperID{"Acme (abcde12345)"}}},
        {"Developer ID Application: Acme (EQHXZ8M8AV) Inc", true, {signer_kind::DeveloperID{"Acme (EQHXZ8M8AV) Inc"}}},
        {"Apple Mac OS Application Signing", true, kAppStore},
        {"Mac App Store Certification Authority", true, kAppStore},
        {"Software Signing", true, kApple},
        {"macOS Software Signing", true, kApple},
        {"Apple Software Update Certification", true, kApple},
        {"3rd Party Mac Developer Application: COMPANY INC (MYIDENTITY)", true,
         {signer_kind::Other{"3rd Party Mac Developer Application: COMPANY INC (MYIDENTITY)"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(signerKind(c.name, c.hasSignature), c.expected) << c.name.value_or("(none)");
}

TEST(GenuineSigner, StatusTable) {
    // The ends of the broken list and every revocation code; the rest of the list is the same rule.
    for (std::int32_t status : {-67061, -67003, -67030}) EXPECT_EQ(signatureState(status), kBroken) << status;
    for (std::int32_t status : {-66992, -67820, -2147409652}) EXPECT_EQ(signatureState(status), kRevoked) << status;
    EXPECT_EQ(signatureState(0), kValid);
    EXPECT_EQ(signatureState(-67062), kNotSigned);
    for (std::int32_t status : {-67050, -67060, 1, -1})
        EXPECT_EQ(signatureState(status), (SignatureState{signature_state::CouldNotCheck{status}}));
}

TEST(GenuineEvidence, Quarantine) {
    const std::string id = "A1B2C3D4-0000-4000-8000-ABCDEFABCDEF";
    EXPECT_EQ(parseQuarantine("0083;5f2b1c00;Safari;" + id + "\n"),
              (QuarantineInfo{"0083", unix(0x5f2b1c00), "Safari", id}));
    EXPECT_EQ(parseQuarantine("0083;;;"), (QuarantineInfo{"0083", {}, {}, {}}));
    EXPECT_EQ(parseQuarantine("0083;zz;Chrome;not-a-uuid;extra"), (QuarantineInfo{"0083", {}, "Chrome", {}}));
    EXPECT_EQ(parseQuarantine("0083;5f2b1c00;;a1b2c3d4-0000-4000-8000-abcdefabcdef")->eventID, id);
    for (const char* bad : {"0083", "xyz;5f2b1c00", ";5f2b1c00", ""}) EXPECT_EQ(parseQuarantine(bad), std::nullopt) << bad;

    EXPECT_TRUE(isUUID(id));
    EXPECT_FALSE(isUUID("A1B2C3D40000400080000ABCDEFABCDEF"));
    EXPECT_FALSE(isUUID("{A1B2C3D4-0000-4000-8000-ABCDEFABCDEF}"));
    EXPECT_FALSE(isUUID("G1B2C3D4-0000-4000-8000-ABCDEFABCDEF"));
}

TEST(GenuineEvidence, WhereFroms) {
    const nlohmann::json froms = {"https://dl.google.com/chrome.dmg", "", "https://www.google.com/chrome/"};
    const std::vector<std::string> expected = {"https://dl.google.com/chrome.dmg", "https://www.google.com/chrome/"};
    for (auto format : {PropertyListFormat::binary, PropertyListFormat::xml})
        EXPECT_EQ(parseWhereFroms(*propertyListData(froms, format)), expected);
    EXPECT_TRUE(parseWhereFroms(*propertyListData(nlohmann::json{{"a", "b"}}, PropertyListFormat::binary)).empty());
    EXPECT_TRUE(parseWhereFroms("not a plist").empty());
}

TEST(GenuineEvidence, DisplayableURL) {
    const std::pair<std::optional<std::string>, bool> cases[] = {
        {"https://dl.google.com/chrome.dmg", true}, {"HTTP://example.com/x", true}, {"ftp://ftp.example.org/a", true},
        {"file:///tmp/x", false}, {"data:text/html,hi", false}, {"javascript:alert(1)", false},
        {"https://", false}, {"example.com/x", false}, {std::nullopt, false},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(displayableDownloadURL(text), shown ? text : std::nullopt) << text.value_or("(none)");
}

TEST(GenuineEvidence, GatekeeperCaptures) {
    const struct {
        const char* file;
        std::optional<bool> accepted;
        std::optional<std::string> source;
    } cases[] = {
        {"assess-2015-accepted-mac-app-store-xcode-blog.txt", true, "Mac App Store"},
        {"assess-2015-yosemite-rejected-mas-dev-cert-nodewebkit2-ANONYMIZED-BY-USER.txt", false, {}},
        {"assess-2016-accepted-apple-system-xcode-cnblog.txt", true, "Apple System"},
        {"assess-2016-elcapitan-rejected-obsolete-envelope-and-raw-openradar25618668.txt", false,
         "obsolete resource envelope"},
        {"assess-2016-rejected-no-verbose-nv352.txt", false, {}},
        // The verdict is an error token: neither accepted nor rejected.
        {"assess-2017-cert-revoked-etrecheck81.txt", {}, {}},
        {"assess-2022-accepted-notarized-swifttoolbox591.txt", true, "Notarized Developer ID"},
        {"assess-2022-rejected-appstore-only-policy-installomator477-TRUNCATED.txt", false, "Notarized Developer ID"},
        {"assess-2022-rejected-not-an-app-swifttoolbox591-TEAMID-REDACTED-BY-USER.txt", false, {}},
        {"assess-2023-rejected-unnotarized-statusim11867.txt", false, "Unnotarized Developer ID"},
        {"assess-2024-accepted-notarized-executable-chrome-fleet23476.txt", true, "Notarized Developer ID"},
        {"assess-install-2020-accepted-apple-installer-installomator9.txt", true, "Apple Installer"},
    };
    for (const auto& c : cases) {
        const auto text = readFile(std::string(TEST_DATA_DIR) + "/spctl/" + c.file);
        ASSERT_TRUE(text) << c.file;
        EXPECT_EQ(parseGatekeeperAssessment(*text), (GatekeeperAssessment{c.accepted, c.source})) << c.file;
    }
    // The last verdict wins; lines are trimmed of spaces and tabs only.
    EXPECT_EQ(parseGatekeeperAssessment("/a: rejected\n\t/a: accepted \nsource=X\n"), (GatekeeperAssessment{true, "X"}));
}

TEST(GenuineSummary, Texts) {
    GenuineReport report{"/Applications/X.app", kDevID, "EQHXZ8M8AV", kValid, false, false, kNotListed, {}};
    auto summary = [&](SignerKind signer, SignatureState signature, std::optional<bool> online = {}, bool revoked = false) {
        report.signer = signer;
        report.signature = signature;
        return genuineSignerSummary(report, online, revoked);
    };
    EXPECT_EQ(summary(kAdHoc, kRevoked, true, true), "Signed without a developer certificate");
    EXPECT_EQ(summary(kUnsigned, kNotSigned), "Not signed");
    EXPECT_EQ(summary(kDevID, kValid, true, true), "Signed by Google LLC \u00B7 revoked by Apple");
    EXPECT_EQ(summary(kAppStore, kRevoked), "Signed by the Mac App Store \u00B7 revoked by Apple");
    EXPECT_EQ(summary(kApple, kUnchecked), "Signed by Apple \u00B7 signature couldn't be checked");
    EXPECT_EQ(summary(kOther, kBroken), "Signed by Apple Development: x \u00B7 signature broken");
    EXPECT_EQ(summary(kDevID, kValid), "Signed by Google LLC \u00B7 notarisation not confirmed on this Mac");
    EXPECT_EQ(summary(kDevID, kValid, true), "Signed by Google LLC \u00B7 notarised");
    EXPECT_EQ(summary(kAppStore, kValid), "From the Mac App Store \u00B7 signature intact");
    EXPECT_EQ(summary(kApple, kValid), "Signed by Apple \u00B7 part of macOS or Apple's own software");
    EXPECT_EQ(summary(kOther, kValid), "Signed by Apple Development: x \u00B7 not a Developer ID certificate");
    report.notarizedOffline = true;
    EXPECT_EQ(summary(kDevID, kValid, false), "Signed by Google LLC \u00B7 notarised");
}

TEST(GenuineJSON, Forms) {
    const std::pair<SignerKind, std::string> signers[] = {
        {kDevID, R"({"developerID":{"name":"Google LLC"}})"}, {kOther, R"({"other":{"name":"Apple Development: x"}})"},
        {kAppStore, R"({"appStore":{}})"}, {kApple, R"({"apple":{}})"}, {kAdHoc, R"({"adHoc":{}})"},
        {kUnsigned, R"({"unsigned":{}})"},
    };
    for (const auto& [signer, text] : signers) {
        EXPECT_EQ(toJSON(signer).dump(), text);
        EXPECT_EQ(signerKindFromJSON(nlohmann::json::parse(text)), signer);
    }
    const std::pair<SignatureState, std::string> states[] = {
        {kValid, R"({"valid":{}})"}, {kNotSigned, R"({"unsigned":{}})"}, {kRevoked, R"({"revoked":{}})"},
        {kBroken, R"({"broken":{}})"}, {kUnchecked, R"({"couldNotCheck":{"_0":-67050}})"},
    };
    for (const auto& [state, text] : states) {
        EXPECT_EQ(toJSON(state).dump(), text);
        EXPECT_EQ(signatureStateFromJSON(nlohmann::json::parse(text)), state);
    }
    EXPECT_EQ(rawValue(GenuineTier::amber), "amber");
    EXPECT_EQ(fromRawValue<GenuineTier>("gold"), GenuineTier::gold);

    const GenuineReport report{"/Applications/Google Chrome.app", kDevID, "EQHXZ8M8AV", kValid, false, true, kMatches,
                               DownloadRecord{"Safari", unix(1596660736), "https://dl.google.com/c.dmg", {}}};
    const std::string text = toJSON(report).dump();
    EXPECT_EQ(text, R"({"appPath":"/Applications/Google Chrome.app","signer":{"developerID":{"name":"Google LLC"}},)"
                    R"("teamID":"EQHXZ8M8AV","signature":{"valid":{}},"stapledTicket":false,"notarizedOffline":true,)"
                    R"("vendor":{"matches":{"vendor":"Google","teamID":"EQHXZ8M8AV"}},)"
                    R"("download":{"agent":"Safari","date":"2020-08-05T20:52:16Z","url":"https://dl.google.com/c.dmg"}})");
    EXPECT_EQ(genuineReportFromJSON(nlohmann::json::parse(text)), report);
    GenuineReport bare = report;
    bare.teamID.reset();
    bare.download.reset();
    EXPECT_EQ(genuineReportFromJSON(nlohmann::json::parse(toJSON(bare).dump())), bare);
    EXPECT_FALSE(genuineReportFromJSON(nlohmann::json::parse(R"({"appPath":"/A.app"})")));

    const OnlineGenuineResult online{kRevoked, false, false, std::nullopt};
    EXPECT_EQ(toJSON(online).dump(), R"({"signature":{"revoked":{}},"notarized":false,"gatekeeperAccepted":false})");
    EXPECT_EQ(onlineGenuineResultFromJSON(nlohmann::json::parse(toJSON(online).dump())), online);

    const GenuineCacheKey key{18446744073709551615ull, 1700000000.25, 0, 1.5};
    EXPECT_EQ(toJSON(key).dump(), R"({"inode":18446744073709551615,"bundleMTime":1700000000.25,"infoMTime":0.0,"sealMTime":1.5})");
    EXPECT_EQ(genuineCacheKeyFromJSON(nlohmann::json::parse(toJSON(key).dump())), key);
}

}  // namespace
}  // namespace orvane
