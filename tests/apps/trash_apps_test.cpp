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
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + entries + "</dict></plist>";
}

TEST(AppsInTrash, NamesLoseTheFindersRenaming) {
    const std::pair<const char*, const char*> cases[] = {
        {"Foo.app", "Foo"},
        {"Foo 12-04-33", "Foo"},
        {"Foo.app 12-04-33", "Foo"},
        {"Foo.app 2-04-33-2", "Foo"},
        {"Foo 12-04-33.app", "Foo"},
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
        {"net.other", std::nullopt, trash + "/Acme.app2/job"},                   // nobody: a neighbour
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

    const std::string lock = "chattr +i '" + app + "' 2>/dev/null";
    if (std::system(lock.c_str()) != 0)
        GTEST_SKIP() << "chattr +i needs root and a file system with the immutable attribute";
    const bool locked = trashAppNeedsAdmin(bundle, 10);
    (void)std::system(("chattr -i '" + app + "'").c_str());
    EXPECT_TRUE(locked);
}

TEST(AppsInTrash, ScanFindsRenamedAppsWithTheirPlistsAndLabels) {
    orvane::testing::TempDir home_;
    home_.write(".Trash/Foo.app 12-04-33/Contents/Info.plist",
                infoPlist("<key>CFBundleIdentifier</key><string>com.acme.foo</string>"
                          "<key>CFBundleDisplayName</key><string>Foo Pro</string>"
                          "<key>CFBundleName</key><string>Foo</string>"));
    home_.write(".Trash/Foo.app 12-04-33/Contents/Library/LaunchAgents/com.acme.foo.agent.plist",
                infoPlist("<key>Label</key><string>com.acme.foo.agent</string>"));
    home_.write(".Trash/Zed.APP/Contents/Info.plist", infoPlist("<key>CFBundleName</key><string>Zed</string>"));
    home_.write(".Trash/a.app/Contents/Info.plist", "not a property list");
    home_.write(".Trash/Bar.APP 1-02-03/Contents/Info.plist", "");
    home_.mkdir(".Trash/X.app/Contents");
    home_.write(".Trash/abc");  // too short to be an app, and not one
    home_.write(".Trash/notes.txt");

    const auto report = TrashApps::scanDetailed(home_.path(), true);
    const std::string trash = home_ / ".Trash";
    const std::vector<TrashAppInfo> apps = {
        {"Bar.APP 1-02-03", trash + "/Bar.APP 1-02-03", "", {}, std::nullopt},
        {"Foo.app 12-04-33", trash + "/Foo.app 12-04-33", "com.acme.foo", {"com.acme.foo.agent"}, "Foo Pro"},
        {"Zed.APP", trash + "/Zed.APP", "", {}, "Zed"},
        {"a.app", trash + "/a.app", "", {}, std::nullopt},
    };
    EXPECT_EQ(report.apps, apps);
    EXPECT_EQ(report.listed, 7);
    struct stat st{};
    ASSERT_EQ(::lstat(trash.c_str(), &st), 0);
    EXPECT_EQ(report.summary(), "listed 7, apps 4, links " + std::to_string(st.st_nlink) +
                                    ", Full Disk Access yes, readable yes");
    EXPECT_EQ(TrashApps::scan(home_.path()), (TrashApps::ScanResult{apps, true}));
}

TEST(AppsInTrash, ScanSaysWhenTheTrashCannotBeListed) {
    orvane::testing::TempDir home_;
    auto report = TrashApps::scanDetailed(home_.path(), false);
    EXPECT_EQ(report.summary(), "listed refused, apps 0, links ?, Full Disk Access no, readable no");
    EXPECT_EQ(report.listed, std::nullopt);

    home_.write(".Trash");  // a file where the folder should be
    report = TrashApps::scanDetailed(home_.path(), true);
    EXPECT_EQ(report.summary(), "listed refused, apps 0, links 1, Full Disk Access yes, readable no");
    EXPECT_EQ(TrashApps::scan(home_.path()), (TrashApps::ScanResult{}));
}

}  // namespace
}  // namespace orvane
