#include "core/update/self_update.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/common/json_files.hpp"
#include "core/update/support_folder.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;

TEST(SelfUpdate, DownloadsAreJudgedByTheirNameAndSigner) {
    EXPECT_EQ(enclosureKind("APP.ZIP"), EnclosureKind::zip);
    EXPECT_EQ(enclosureKind("a.tar"), EnclosureKind::unknown);
    EXPECT_EQ(enclosureKind("a.TGZ"), EnclosureKind::tar);
    EXPECT_EQ(enclosureKind("a.pkg.zip"), EnclosureKind::zip);

    // Every real capture: the first Developer ID certificate's team, and none for Apple's own.
    const std::string dir = std::string(TEST_DATA_DIR) + "/pkgutil/";
    const std::pair<const char*, std::optional<std::string>> captures[] = {
        {"check-signature-2018-sha1-rtools.txt", "LNVWJ4S7DC"},
        {"check-signature-2019-untrusted-app-openradar47072099-TRUNCATED.txt", "TXAEAV5RN4"},
        {"check-signature-2020-apple-software-installomator9-TRUNCATED.txt", std::nullopt},
        {"check-signature-2022-notarized-sha256-nudge-TRUNCATED.txt", "9GQZ7KUFR6"},
    };
    for (const auto& [name, team] : captures) {
        const auto text = readFile(dir + name);
        ASSERT_TRUE(text) << name;
        EXPECT_EQ(teamIDFromPkgSignature(*text), team) << name;
    }
    EXPECT_EQ(teamIDFromPkgSignature("    1. Developer ID Installer: Odd (Name) Ltd (ABCDE12345) (Z9Y8X7W6V5)  \r\n"),
              "Z9Y8X7W6V5");
    for (const char* refused : {"1. Developer ID Installer: Lower (abcde12345)", "Developer ID Installer: X (ABCDE12345)",
                                "1.Developer ID Installer: X (ABCDE12345)", "1. Developer ID Installer: X (ABCDE12345) x",
                                "1. Apple Development: X (ABCDE12345)"})
        EXPECT_EQ(teamIDFromPkgSignature(refused), std::nullopt) << refused;

    EXPECT_TRUE(selfUpdateSwapPermitted("com.v.o", "com.v.o", "T1", "T1"));
    EXPECT_FALSE(selfUpdateSwapPermitted("com.v.o", "com.v.o", "T1", std::nullopt));
    EXPECT_FALSE(selfUpdateSwapPermitted("com.v.o", "com.v.o", "", ""));
    EXPECT_FALSE(selfUpdateSwapPermitted("com.v.o", "com.v.x", "T1", "T1"));
    EXPECT_FALSE(selfUpdateSwapPermitted("com.v.o", "com.v.o", "T1", "T2"));
    EXPECT_TRUE(isTranslocatedBundlePath("/private/var/folders/x/AppTranslocation/1/d/Orvane.app"));
}

TEST(SelfUpdate, TheFinishingCopyNeedsEveryArgumentRight) {
    using Args = std::vector<std::string>;
    const Args good = {"/Applications/V.app/Contents/MacOS/v", "--finish-update", "--old", "/Applications/Orvane.app",
                       "--pid", "412"};
    EXPECT_EQ(parseSelfUpdateHandoff(good), (SelfUpdateHandoff{"/Applications/Orvane.app", 412}));
    EXPECT_EQ(parseSelfUpdateHandoff({"--pid", "+7", "--old", "/A.app", "--finish-update"}), (SelfUpdateHandoff{"/A.app", 7}));
    for (const Args& refused : std::initializer_list<Args>{
             {"--old", "/A.app", "--pid", "5"},
             {"--finish-update", "--old", "/A.app", "--pid", "0"},
             {"--finish-update", "--old", "/A.app", "--pid", "-1"},
             {"--finish-update", "--old", "/A.app", "--pid", "99999999999"},
             {"--finish-update", "--old", "/A.app", "--pid", "5x"},
             {"--finish-update", "--old", "/A.app", "--pid", ""},
             {"--finish-update", "--old", "/A.app", "--pid"},
             {"--finish-update", "--old", "A.app", "--pid", "5"},
             {"--finish-update", "--old", "/A.app/x", "--pid", "5"}})
        EXPECT_EQ(parseSelfUpdateHandoff(refused), std::nullopt) << refused.back();

    auto nothing = [](const std::string&) { return false; };
    auto everything = [](const std::string&) { return true; };
    EXPECT_EQ(selfUpdateDestination("/Applications/Orvane.app", nothing), "/Applications/Velloran Orvane.app");
    EXPECT_EQ(selfUpdateDestination("/Applications/Orvane.app", everything), "/Applications/Orvane.app");
    EXPECT_EQ(selfUpdateDestination("/Applications/My Copy.app", nothing), "/Applications/My Copy.app");
}

TEST(SupportFolder, MovesOnceAndNeverOverAnything) {
    TempDir dir;
    const std::string from = dir / "Orvane", to = dir / "Velloran Orvane";
    auto reset = [&] {
        std::filesystem::remove_all(from);
        std::filesystem::remove_all(to);
    };

    dir.write("Orvane/history.json", "[]");
    EXPECT_EQ(migrateSupportFolder(from, to), SupportFolderMigration(migration::Moved{}));
    EXPECT_EQ(readFile(to + "/history.json"), "[]");
    EXPECT_EQ(migrateSupportFolder(from, to), SupportFolderMigration(migration::NothingToMove{}));

    reset();
    dir.write("Orvane/a", "old");
    dir.write("Velloran Orvane/a", "new");
    EXPECT_EQ(migrateSupportFolder(from, to), SupportFolderMigration(migration::BothExist{}));
    EXPECT_EQ(readFile(from + "/a"), "old");
    EXPECT_EQ(readFile(to + "/a"), "new");

    // A link is what lstat sees: nothing to move, and its target stays.
    reset();
    dir.write("elsewhere/x", "x");
    ASSERT_EQ(::symlink((dir / "elsewhere").c_str(), from.c_str()), 0);
    EXPECT_EQ(migrateSupportFolder(from, to), SupportFolderMigration(migration::NothingToMove{}));
    EXPECT_FALSE(std::filesystem::exists(to));

    // Another launch moved it first, and this one's move failed for that.
    reset();
    dir.write("Orvane/x", "x");
    auto racer = [](const std::string& a, const std::string& b) -> std::optional<std::string> {
        std::filesystem::rename(a, b);
        return "it is gone";
    };
    EXPECT_EQ(migrateSupportFolder(from, to, racer), SupportFolderMigration(migration::Moved{}));

    reset();
    dir.write("Orvane/x", "x");
    auto failing = [](const std::string&, const std::string&) -> std::optional<std::string> { return "no room"; };
    EXPECT_EQ(migrateSupportFolder(from, to, failing), SupportFolderMigration(migration::Failed{"no room"}));
    EXPECT_TRUE(std::filesystem::exists(from + "/x"));
    // A rename never replaces what appeared at the destination in the meantime.
    dir.write("Velloran Orvane/y", "y");
    EXPECT_TRUE(renameFolderWithoutReplacing(from, to).has_value());
    EXPECT_EQ(readFile(to + "/y"), "y");
}

}  // namespace
}  // namespace orvane
