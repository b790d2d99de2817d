// Apps in the Trash: the Finder's renamed names, which jobs still point at a trashed app, when
// removal needs an administrator, and the scan of a real Trash.
#include "core/apps/trash_apps.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

std::string infoPlist(const std::string& entries) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>)" +
           entries + "</dict></plist>\n";
}

TEST(AppsInTrash, NamesLoseTheFindersRenaming) {
    const std::pair<const char*, const char*> cases[] = {
        {"Foo.app", "Foo"},
        {"Foo.APP", "Foo"},
        {"Foo 12-04-33", "Foo"},
        {"Foo.app 12-04-33", "Foo"},
        {"Foo.app 2-04-33-2", "Foo"},
        {"Foo 12-04-33.app", "Foo"},
        {"Version 2.app", "Version 2"},
        {"Foo 123-04-33", "Foo 123-04-33"},
        {"Foo.app 12-04-33 copy", "Foo.app 12-04-33 copy"},
    };
    for (const auto& [name, base] : cases) EXPECT_EQ(trashedAppBaseName(name), base) << name;

    TrashAppInfo app{"Foo.app 12-04-33", "/t/Foo.app 12-04-33", "com.acme.foo", {"com.acme.foo.agent"}, " \tFoo Pro "};
    EXPECT_EQ(app.displayName(), "Foo Pro");
    app.appName = " \t ";
    EXPECT_EQ(app.displayName(), "Foo");
    EXPECT_EQ(toJSON(app).dump(),
              R"({"name":"Foo.app 12-04-33","path":"/t/Foo.app 12-04-33","bundleID":"com.acme.foo",)"
              R"("embeddedLabels":["com.acme.foo.agent"],"appName":" \t "})");
    app.appName.reset();
    EXPECT_EQ(app.displayName(), "Foo");
    EXPECT_FALSE(toJSON(app).contains("appName"));
}

TEST(AppsInTrash, StaleJobsAreMatchedByLabelPathOrIdentifier) {
    const std::string trash = "/Users/u/.Trash";
    const TrashAppInfo acme{"Acme.app", trash + "/Acme.app", "com.acme", {}, std::nullopt};
    const TrashAppInfo nameless{"Other.app", trash + "/Other.app", "", {}, std::nullopt};
    const TrashAppInfo zed{"Zed.app", trash + "/Zed.app", "com.zed", {"com.zed.agent"}, std::nullopt};
    const TrashAppInfo dee{"Dee.app", trash + "/Dee.app", "com.dee", {"com.dee.helper"}, std::nullopt};
    const std::vector<BackgroundReference> references = {
        {"ABCDE12345.com.acme.helper", std::nullopt, std::nullopt},              // acme, team dropped
        {"com.acmex.agent", std::nullopt, std::nullopt},                         // nobody: not a dotted extension
        {"abcde12345.com.acme.x", std::nullopt, std::nullopt},                   // nobody: not a team
        {"net.job", std::nullopt, trash + "/Acme.app/Contents/MacOS/job"},       // acme, by path
        {"net.other", std::nullopt, trash + "/Acme.app2/job"},                   // nobody
        {"net.child", "COM.ACME", std::nullopt},                                 // acme, by parent
        {"COM.ZED.AGENT", std::nullopt, std::nullopt},                           // zed, embedded
        {"ABCDE12345.com.zed.agent", std::nullopt, std::nullopt},                // zed, embedded once bare
        {"unrelated", std::nullopt, std::nullopt},                               // nobody
    };
    const std::vector<StaleTrashApp> expected = {
        {acme, {"ABCDE12345.com.acme.helper", "net.job", "net.child"}, true},
        {zed, {"COM.ZED.AGENT", "ABCDE12345.com.zed.agent"}, true},
        {dee, {"com.dee.helper"}, false},
    };
    EXPECT_EQ(staleTrashApps({acme, nameless, zed, dee}, references), expected);
    EXPECT_TRUE(staleTrashApps({nameless}, {{"unrelated", std::nullopt, std::nullopt}}).empty());
}

TEST(AppsInTrash, NeedsAdminForLocksUnlistableFoldersAndLargeTrees) {
    orvane::testing::TempDir temp;
    const std::string app = temp.write("Tool.app/Contents/MacOS/tool");  // four entries with the bundle
    const std::string bundle = temp / "Tool.app";
    fs::create_directory_symlink("/", bundle + "/Contents/root");  // not followed: one entry more
    EXPECT_FALSE(trashAppNeedsAdmin(bundle, 5));
    EXPECT_TRUE(trashAppNeedsAdmin(bundle, 4));
    EXPECT_TRUE(trashAppNeedsAdmin(bundle, 0));
    EXPECT_TRUE(trashAppNeedsAdmin(temp / "Gone.app", 10));

    if (::geteuid() != 0) {
        fs::permissions(bundle + "/Contents", fs::perms::owner_write, fs::perm_options::remove);
        EXPECT_TRUE(trashAppNeedsAdmin(bundle, 10));
        fs::permissions(bundle + "/Contents", fs::perms::owner_write, fs::perm_options::add);
    }

    const std::string lock = "chattr +i '" + app + "' 2>/dev/null";
    if (std::system(lock.c_str()) != 0)
        GTEST_SKIP() << "chattr +i needs root and a file system with the immutable attribute";
    const bool locked = trashAppNeedsAdmin(bundle, 10);
    (void)std::system(("chattr -i '" + app + "'").c_str());
    EXPECT_TRUE(locked);
}

class AppsInTrashScan : public ::testing::Test {
protected:
    orvane::testing::TempDir home_;
};

TEST_F(AppsInTrashScan, FindsRenamedAppsWithTheirPlistsAndLabels) {
    home_.write(".Trash/Foo.app 12-04-33/Contents/Info.plist",
                infoPlist("<key>CFBundleIdentifier</key><string>com.acme.foo</string>"
                          "<key>CFBundleDisplayName</key><string>Foo Pro</string>"
                          "<key>CFBundleName</key><string>Foo</string>"));
    home_.write(".Trash/Foo.app 12-04-33/Contents/Library/LaunchAgents/com.acme.foo.agent.plist",
                infoPlist("<key>Label</key><string>com.acme.foo.agent</string>"
                          "<key>Program</key><string>/usr/bin/true</string>"));
    home_.write(".Trash/Zed.APP/Contents/Info.plist", infoPlist("<key>CFBundleName</key><string>Zed</string>"));
    home_.write(".Trash/a.app/Contents/Info.plist", "not a property list");
    home_.mkdir(".Trash/X.app/Contents");
    home_.write(".Trash/abc");
    home_.write(".Trash/notes.txt");

    const auto report = TrashApps::scanDetailed(home_.path(), true);
    const std::string trash = home_ / ".Trash";
    const std::vector<TrashAppInfo> apps = {
        {"Foo.app 12-04-33", trash + "/Foo.app 12-04-33", "com.acme.foo", {"com.acme.foo.agent"}, "Foo Pro"},
        {"Zed.APP", trash + "/Zed.APP", "", {}, "Zed"},
        {"a.app", trash + "/a.app", "", {}, std::nullopt},
    };
    EXPECT_EQ(report.apps, apps);
    EXPECT_EQ(report.listed, 6);
    struct stat st{};
    ASSERT_EQ(::lstat(trash.c_str(), &st), 0);
    EXPECT_EQ(report.summary(), "listed 6, apps 3, links " + std::to_string(st.st_nlink) +
                                    ", Full Disk Access yes, readable yes");
    EXPECT_EQ(TrashApps::scan(home_.path()), (TrashApps::ScanResult{apps, true}));
}

TEST_F(AppsInTrashScan, SaysWhenTheTrashCannotBeListed) {
    auto report = TrashApps::scanDetailed(home_.path(), false);
    EXPECT_EQ(report.summary(), "listed refused, apps 0, links ?, Full Disk Access no, readable no");
    EXPECT_EQ(report.listed, std::nullopt);

    home_.write(".Trash");  // a file where the folder should be
    report = TrashApps::scanDetailed(home_.path(), true);
    EXPECT_EQ(report.summary(), "listed refused, apps 0, links 1, Full Disk Access yes, readable no");
    EXPECT_EQ(TrashApps::scan(home_.path()), (TrashApps::ScanResult{}));
}

TEST_F(AppsInTrashScan, DeletesAsTheRunningUser) {
    home_.write(".Trash/Some.app/Contents/MacOS/Some");
    const auto outcomes = TrashApps::deleteAsUser({"Some.app", "Gone.app"}, home_.path());
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_TRUE(outcomes[0].deleted);
    EXPECT_EQ(outcomes[1].reason, "it's no longer in the Trash");
    EXPECT_FALSE(fs::exists(home_ / ".Trash/Some.app"));
}

}  // namespace
}  // namespace orvane
