#include "core/authenticity/genuine_check.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <gtest/gtest.h>

#include <map>

#include "core/common/json_files.hpp"
#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;
using testing::writeFile;

const std::string kApp = "/Applications/Google Chrome.app";
const std::string kEventID = "A1B2C3D4-0000-4000-8000-ABCDEFABCDEF";

std::string capture(const std::string& tool, const std::string& name) {
    return readFile(std::string(TEST_DATA_DIR) + "/" + tool + "/" + name).value_or("");
}

// Tools answered by their first argument ("--display", "--verify", "--assess"); any other run
// behaves as an absent tool.
Facts fakeTools(std::map<std::string, ToolResult> answers) {
    Facts facts = Facts::real();
    facts.run = [answers = std::move(answers)](const std::string&, const std::vector<std::string>& args, double, bool,
                                               ToolErrors errors) {
        EXPECT_EQ(errors, ToolErrors::merged);  // codesign and spctl speak on standard error
        auto found = answers.find(args.at(0));
        return found == answers.end() ? ToolResult{} : found->second;
    };
    return facts;
}

ToolResult ran(std::int32_t status, const std::string& text) {
    return toolResultFromOutput(text, "", false, status, false);
}

TEST(GenuineCheckTools, SignerFromCodesignCaptures) {
    using Signer = std::pair<SignerKind, std::optional<std::string>>;
    const struct {
        const char* file;
        Signer expected;
        bool stapled;
    } cases[] = {
        {"codesign-dvv-2024-chrome-notarized-fleet23476.txt",
         {{signer_kind::DeveloperID{"Google LLC"}}, "EQHXZ8M8AV"}, true},
        // Trimmed by its poster before any Authority line: signed, but no certificate seen.
        {"codesign-display-r-v-2015-kaleidoscope-USER-TRIMMED-hjuutilainen22.txt",
         {{signer_kind::AdHoc{}}, "432ZXYXDNY"}, false},
        {"codesign-dv-2016-notational-velocity-v1-signedtime-nv352.txt", {{signer_kind::AdHoc{}}, std::nullopt}, false},
        {"codesign-verbose4-display-2022-adhoc-linker-signed-arm64-dune5650.txt",
         {{signer_kind::AdHoc{}}, std::nullopt}, false},
    };
    for (const auto& c : cases) {
        const Facts facts = fakeTools({{"--display", ran(0, capture("codesign", c.file))}});
        EXPECT_EQ(GenuineCheck::signerAndTeam(kApp, facts), c.expected) << c.file;
        EXPECT_EQ(GenuineCheck::notarizedCheck(kApp, false, facts), c.stapled) << c.file;
    }
    const Facts notSigned = fakeTools({{"--display", ran(1, kApp + ": code object is not signed at all\n")}});
    EXPECT_EQ(GenuineCheck::signerAndTeam(kApp, notSigned), (std::pair{SignerKind{}, std::optional<std::string>{}}));
    EXPECT_EQ(GenuineCheck::signerAndTeam(kApp, fakeTools({})), (std::pair{SignerKind{}, std::optional<std::string>{}}));
}

TEST(GenuineCheckTools, ValidateAndOnline) {
    const struct {
        ToolResult verify;
        SignatureState expected;
    } cases[] = {
        {ran(0, ""), {signature_state::Valid{}}},
        {ran(1, kApp + ": code object is not signed at all\nIn architecture: arm64\n"), {signature_state::Unsigned{}}},
        {ran(1, kApp + ": CSSMERR_TP_CERT_REVOKED\n"), {signature_state::Revoked{}}},
        {ran(1, kApp + ": a sealed resource is missing or invalid\n"), {signature_state::Broken{}}},
        {ToolResult{}, {signature_state::CouldNotCheck{-1}}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(GenuineCheck::validate(kApp, GenuineCheck::kNoNetworkAccess, fakeTools({{"--verify", c.verify}})),
                  c.expected);

    const Facts notarized = fakeTools(
        {{"--assess", ran(0, capture("spctl", "assess-2024-accepted-notarized-executable-chrome-fleet23476.txt"))},
         {"--verify", ran(0, "")}});
    EXPECT_EQ(GenuineCheck::online(kApp, notarized),
              (OnlineGenuineResult{{signature_state::Valid{}}, true, true, "Notarized Developer ID"}));
    EXPECT_TRUE(GenuineCheck::notarizedCheck(kApp, true, notarized));
    // Gatekeeper's revocation stands even where codesign's verification says nothing.
    const Facts revoked =
        fakeTools({{"--assess", ran(3, capture("spctl", "assess-2017-cert-revoked-etrecheck81.txt"))}});
    EXPECT_EQ(GenuineCheck::online(kApp, revoked), (OnlineGenuineResult{{signature_state::Revoked{}}, false, {}, {}}));
    const Facts unnotarized =
        fakeTools({{"--assess", ran(3, capture("spctl", "assess-2023-rejected-unnotarized-statusim11867.txt"))}});
    EXPECT_FALSE(GenuineCheck::notarizedCheck(kApp, true, unnotarized));
    EXPECT_EQ(GenuineCheck::online(kApp, fakeTools({})),
              (OnlineGenuineResult{{signature_state::CouldNotCheck{-1}}, false, {}, {}}));
}

TEST(GenuineCheckTools, OfflineWithoutToolsJudgesNothing) {
    TempDir home;
    GenuineReport report = GenuineCheck::offline(kApp, "Google Chrome", "com.google.Chrome", home.path(), fakeTools({}));
    EXPECT_EQ(report.signer, SignerKind{});
    EXPECT_EQ(report.signature, (SignatureState{signature_state::CouldNotCheck{-1}}));
    EXPECT_EQ(report.vendor, VendorMatch{});
    EXPECT_EQ(report.tier(), std::nullopt);
    // A tool that ran and found no signature does accuse a famous name.
    const std::string notSigned = kApp + ": code object is not signed at all\n";
    report = GenuineCheck::offline(kApp, "Google Chrome", "", home.path(),
                                   fakeTools({{"--display", ran(1, notSigned)}, {"--verify", ran(1, notSigned)}}));
    EXPECT_EQ(report.signature, (SignatureState{signature_state::Unsigned{}}));
    EXPECT_EQ(report.vendor, (VendorMatch{vendor_match::Mismatch{"Google", {"EQHXZ8M8AV"}, std::nullopt}}));
    EXPECT_EQ(report.tier(), GenuineTier::red);
}

void makeQuarantineDatabase(const std::string& path) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    const std::string sql =
        "CREATE TABLE LSQuarantineEvent (LSQuarantineEventIdentifier TEXT PRIMARY KEY NOT NULL, "
        "LSQuarantineDataURLString TEXT, LSQuarantineOriginURLString TEXT);"
        "INSERT INTO LSQuarantineEvent VALUES ('" + kEventID + "', 'https://dl.google.com/c.dmg', NULL);"
        "INSERT INTO LSQuarantineEvent VALUES ('B1B2C3D4-0000-4000-8000-ABCDEFABCDEF', '', 'https://example.com/');";
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
}

TEST(GenuineCheckDisk, QuarantineDatabaseIsOnlyRead) {
    TempDir dir;
    const std::string db = dir / "QuarantineEventsV2";
    makeQuarantineDatabase(db);
    const auto before = readFile(db);
    using Event = GenuineCheck::QuarantineEvent;
    EXPECT_EQ(GenuineCheck::quarantineEvent(db, "a1b2c3d4-0000-4000-8000-abcdefabcdef"),
              (Event{"https://dl.google.com/c.dmg", std::nullopt}));
    EXPECT_EQ(GenuineCheck::quarantineEvent(db, "B1B2C3D4-0000-4000-8000-ABCDEFABCDEF"),
              (Event{std::nullopt, "https://example.com/"}));
    EXPECT_EQ(GenuineCheck::quarantineEvent(db, "C1B2C3D4-0000-4000-8000-ABCDEFABCDEF"), std::nullopt);
    EXPECT_EQ(GenuineCheck::quarantineEvent(db, "' OR 1=1 --"), std::nullopt);
    EXPECT_EQ(GenuineCheck::quarantineEvent(dir / "missing", kEventID), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
    EXPECT_EQ(readFile(db), before);
}

TEST(GenuineCheckDisk, DownloadFromAttributes) {
    TempDir home;
    const std::string app = home.mkdir("Applications/Chrome.app");
    const std::string quarantine = "0083;5f2b1c00;Safari;" + kEventID;
    if (::setxattr(app.c_str(), "user.com.apple.quarantine", quarantine.data(), quarantine.size(), 0) != 0)
        GTEST_SKIP() << "this file system refuses user extended attributes";
    EXPECT_EQ(GenuineCheck::xattrData(app, "com.apple.quarantine"), quarantine);
    EXPECT_EQ(GenuineCheck::xattrData(app, "com.apple.metadata:kMDItemWhereFroms"), std::nullopt);
    ASSERT_EQ(::setxattr(app.c_str(), "user.empty", "", 0, 0), 0);
    EXPECT_EQ(GenuineCheck::xattrData(app, "empty"), std::nullopt);

    const TimePoint date = Clock::from_time_t(0x5f2b1c00);
    // No database yet: the record stands with what the attribute said.
    EXPECT_EQ(GenuineCheck::downloadRecord(app, home.path()), (DownloadRecord{"Safari", date, {}, {}}));
    // A where-from that cannot be shown sends the lookup to the database.
    const std::string froms = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><array><string>file:///tmp/x</string></array></plist>)";
    ASSERT_EQ(::setxattr(app.c_str(), "user.com.apple.metadata:kMDItemWhereFroms", froms.data(), froms.size(), 0), 0);
    std::filesystem::create_directories(home / "Library/Preferences");
    makeQuarantineDatabase(home / "Library/Preferences/com.apple.LaunchServices.QuarantineEventsV2");
    EXPECT_EQ(GenuineCheck::downloadRecord(app, home.path()),
              (DownloadRecord{"Safari", date, "https://dl.google.com/c.dmg", {}}));
    // Without a quarantine attribute only the where-froms speak.
    ASSERT_EQ(::removexattr(app.c_str(), "user.com.apple.quarantine"), 0);
    EXPECT_EQ(GenuineCheck::downloadRecord(app, home.path()), (DownloadRecord{{}, {}, {}, {}}));
    ASSERT_EQ(::removexattr(app.c_str(), "user.com.apple.metadata:kMDItemWhereFroms"), 0);
    EXPECT_EQ(GenuineCheck::downloadRecord(app, home.path()), std::nullopt);
}

TEST(GenuineCheckDisk, CacheKey) {
    TempDir dir;
    const std::string app = dir.mkdir("X.app");
    const std::string info = dir.write("X.app/Contents/Info.plist", "<plist/>");
    const timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 500000000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, info.c_str(), times, 0), 0);
    const auto key = GenuineCacheKey::of(app);
    ASSERT_TRUE(key);
    EXPECT_EQ(key->infoMTime, 1700000000.5);
    EXPECT_EQ(key->sealMTime, 0);
    EXPECT_NE(key->inode, 0u);
    EXPECT_EQ(GenuineCacheKey::of(app), key);
    // A replaced Info.plist with the same second but another instant changes the key.
    const timespec later[2] = {{0, UTIME_OMIT}, {1700000000, 600000000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, info.c_str(), later, 0), 0);
    EXPECT_NE(GenuineCacheKey::of(app), key);
    EXPECT_EQ(GenuineCacheKey::of(dir / "Missing.app"), std::nullopt);
}

TEST(GenuineCheckReplay, RecordedMacAnswersEverything) {
    TempDir dir;
    writeFile(dir / "home", "/Users/amy\n");
    writeFile(dir / "codesign.txt", capture("codesign", "codesign-dvv-2024-chrome-notarized-fleet23476.txt"));
    writeFile(dir / "tools.json", nlohmann::json::array({
        {{"argv", {"/usr/bin/codesign", "--display", "--verbose=4", kApp}}, {"stderr", "codesign.txt"}, {"status", 0}},
        {{"argv", {"/usr/bin/codesign", "--verify", "--deep", "--strict", kApp}}, {"status", 0}},
    }).dump());
    std::filesystem::create_directories(dir / ("root" + kApp + "/Contents"));
    std::filesystem::create_directories(dir / "root/Users/amy/Library/Preferences");
    makeQuarantineDatabase(dir / "root/Users/amy/Library/Preferences/com.apple.LaunchServices.QuarantineEventsV2");
    // The quarantine attribute as bytes, the where-froms a binary property list.
    writeFile(dir / "xattrs.json", nlohmann::json{{kApp, {
        {"com.apple.quarantine", {{"base64", "MDA4Mzs1ZjJiMWMwMDtTYWZhcmk7QTFCMkMzRDQtMDAwMC00MDAwLTgwMDAtQUJDREVGQUJDREVG"}}},
        {"com.apple.metadata:kMDItemWhereFroms", {{"base64",
            "YnBsaXN0MDCiAQJfEEdodHRwczovL2RsLmdvb2dsZS5jb20vY2hyb21lL21hYy91bml2ZXJzYWwvc3RhYmxlL0dHUk8vZ29vZ2xlY2hy"
            "b21lLmRtZ18QHmh0dHBzOi8vd3d3Lmdvb2dsZS5jb20vY2hyb21lLwgLVQAAAAAAAAEBAAAAAAAAAAMAAAAAAAAAAAAAAAAAAAB2"}}},
    }}}.dump());
    auto load = loadRecording(dir.path());
    ASSERT_TRUE(load.recording) << load.error;
    const Facts facts = recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));

    const GenuineReport report = GenuineCheck::offline(kApp, "Google Chrome", "com.google.Chrome", "/Users/amy", facts);
    const DownloadRecord download{"Safari", Clock::from_time_t(0x5f2b1c00),
                                  "https://dl.google.com/chrome/mac/universal/stable/GGRO/googlechrome.dmg",
                                  "https://www.google.com/chrome/"};
    EXPECT_EQ(report, (GenuineReport{kApp, {signer_kind::DeveloperID{"Google LLC"}}, "EQHXZ8M8AV",
                                     {signature_state::Valid{}}, false, true,
                                     {vendor_match::Matches{"Google", "EQHXZ8M8AV"}}, download}));
    EXPECT_EQ(report.tier(), GenuineTier::gold);
    // The database of the recording is reached through its place under root.
    EXPECT_EQ(GenuineCheck::quarantineEvent(*facts.localPath("/Users/amy/Library/Preferences/"
                                                             "com.apple.LaunchServices.QuarantineEventsV2"),
                                            kEventID)->url,
              "https://dl.google.com/c.dmg");
}

}  // namespace
}  // namespace orvane
