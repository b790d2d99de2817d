#include "core/apps/leftover_ownership.hpp"

#include <gtest/gtest.h>

#include "core/apps/app_groups.hpp"
#include "core/apps/installed_identifiers.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {

namespace {

const std::set<std::string> kNone;

TEST(LeftoverOwnership, OrphanOwnerKeepsWhatAnythingInstalledCouldOwn) {
    const std::set<std::string> teams = {"ABCDE12345"};
    struct Case {
        const char* name;
        std::set<std::string> installed;
        InstalledTeamIDs teams;
        std::optional<std::string> owner;
    };
    const Case cases[] = {
        {"com.acme.tool.plist", {}, teams, "com.acme.tool"},
        {"com.acme.tool.plist", {"com.acme.other"}, teams, std::nullopt},
        {"com.acme.plist", {}, teams, std::nullopt},
        {"com.acme.tool.AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE.plist", {}, teams, "com.acme.tool"},
        {"com.acme.tool.aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee", {}, teams, "com.acme.tool"},
        {"com.acme.tool.AAAAAAAA_BBBB-CCCC-DDDD-EEEEEEEEEEEE",
         {},
         teams,
         "com.acme.tool.aaaaaaaa_bbbb-cccc-dddd-eeeeeeeeeeee"},
        {"ABCDE12345.com.acme.tool", {}, teams, std::nullopt},
        {"ZZZZZ99999.com.acme.tool", {}, teams, "com.acme.tool"},
        {"ZZZZZ99999.com.acme.tool", {}, std::nullopt, std::nullopt},
        {"abcde12345.com.acme.tool", {}, std::nullopt, "abcde12345.com.acme.tool"},
        {"group.com.acme.tool", {}, teams, "com.acme.tool"},
        {"systemgroup.com.acme.tool", {}, teams, "com.acme.tool"},
        {"group.systemgroup.com.acme.tool", {}, teams, "systemgroup.com.acme.tool"},
        {"Com.Acme.Tool.savedState", {}, teams, "com.acme.tool"},
        {"com.acme.tool.savedstate", {}, teams, "com.acme.tool.savedstate"},
        {"com.acme.tool.sfl4.plist", {}, teams, "com.acme.tool.sfl4"},
        {"com.acme.my tool", {}, teams, std::nullopt},
        {"com..tool", {}, teams, std::nullopt},
        {"com.nativeinstruments.anything", {}, teams, std::nullopt},
        {"com.apple.notes", {}, teams, std::nullopt},
        {"com.applesauce.tool", {}, teams, "com.applesauce.tool"},
        {"com.acme.tool.helper", {"com.acme.tool"}, teams, std::nullopt},
        {"com.acme.tool", {"com.acme.tool.pro"}, teams, std::nullopt},
        {"com.acme.tool", {"com.acmex.tool"}, teams, "com.acme.tool"},
        {"com.acme.tool", {"com"}, teams, std::nullopt},
        {"com.acme.tool", {""}, teams, "com.acme.tool"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(orphanOwner(c.name, c.installed, c.teams), c.owner)
            << c.name << " teams known: " << c.teams.has_value();
}

TEST(LeftoverOwnership, IdentifierShapes) {
    EXPECT_EQ(baseBundleID("com.vendor.app.helper.agent"), "com.vendor.app");
    EXPECT_EQ(baseBundleID("com.vendor.app.Helper"), "com.vendor.app");
    EXPECT_EQ(baseBundleID("com.vendor.helper"), "com.vendor.helper");
    EXPECT_EQ(baseBundleID("com..vendor.app.helper"), "com.vendor.app");
    EXPECT_EQ(baseBundleID("com.vendor.app.pro"), "com.vendor.app.pro");

    EXPECT_EQ(leftoverVendor("com.acme.tool"), "com.acme");
    EXPECT_EQ(leftoverVendor("com.acme"), std::nullopt);
    EXPECT_EQ(leftoverVendor("com.acme..tool"), std::nullopt);

    EXPECT_EQ(groupContainerParts("ABCDE12345.group.com.acme"),
              (GroupContainerParts{"ABCDE12345", "com.acme"}));
    EXPECT_EQ(groupContainerParts("group.groups.com.acme"),
              (GroupContainerParts{std::nullopt, "com.acme"}));
    EXPECT_EQ(groupContainerParts("abcde12345.Group.com.acme"),
              (GroupContainerParts{std::nullopt, "abcde12345.Group.com.acme"}));
    EXPECT_EQ(groupContainerParts("ABCDE12345"), (GroupContainerParts{std::nullopt, "ABCDE12345"}));
}

TEST(LeftoverOwnership, StricterOwnershipTests) {
    const std::set<std::string> claimed = {"group.com.shared.data"};
    struct Case {
        const char* name;
        std::set<std::string> installed;
        bool owned;
    };
    const Case cases[] = {
        {"com.acme.tool.plist", {}, false},
        {"com.acme.plist", {}, true},
        {"com.acme.savedState", {}, true},
        {"com.applesauce.tool", {}, true},
        {"is.workflowy.app", {}, true},
        {"systemgroup.com.paddle.x", {}, true},
        {"com.acme", {}, true},
        {"ZZZZZ99999.com.acme.tool", {}, true},
        {"zzzzz99999.com.acme.tool", {}, false},
        {"com.acme.tool", {"COM.ACME.OTHER"}, true},
        {"com.acme.tool.x", {"com.acme.tool"}, true},
        {"com.acme.tool", {"", "org.acme.tool"}, false},
        {"group.com.shared.data.cache", {}, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(reverseDNSLeftoverOwned(c.name, c.installed, claimed), c.owned) << c.name;

    EXPECT_FALSE(freeformLeftoverOffered("Firefox", {"FireFox"}, {}));
    EXPECT_FALSE(freeformLeftoverOffered("Firefox", {}, {"Org.Mozilla.Firefox"}));
    EXPECT_TRUE(freeformLeftoverOffered("Firefox", {"Chromium"}, {"org.chromium.chromium"}));
    EXPECT_FALSE(freeformLeftoverOffered("firefox", {}, {}));
    EXPECT_FALSE(freeformLeftoverOffered("Unknown Vendor", {}, {}));

    const std::set<std::string> owners = {"adobe"};
    EXPECT_TRUE(systemSupportFolderOwned("Adobe Photoshop 2024", owners, {}));
    EXPECT_FALSE(systemSupportFolderOwned("adobeextras", owners, {}));
    EXPECT_TRUE(systemSupportFolderOwned("Adobe", owners, {}));
    EXPECT_TRUE(systemSupportFolderOwned("zz", {"zz top"}, {}));
    EXPECT_TRUE(systemSupportFolderOwned("Logic Pro X", {}, {}));
    EXPECT_TRUE(systemSupportFolderOwned("AppleVendorThing", {}, {}));
    EXPECT_TRUE(systemSupportFolderOwned("com.acme.tool", {}, {"Com.Acme.Tool"}));
    EXPECT_FALSE(systemSupportFolderOwned("com.acme.tool", {}, {"com.acme"}));
}

TEST(LeftoverOwnership, GroupContainers) {
    const std::set<std::string> teams = {"ABCDE12345"};
    struct Case {
        const char* name;
        InstalledTeamIDs teams;
        std::set<std::string> installed;
        bool orphaned;
    };
    const Case cases[] = {
        {"ZZZZZ99999.group.com.acme.tool", teams, {}, true},
        {"ZZZZZ99999.group.com.acme.tool", std::nullopt, {}, false},
        {"ABCDE12345.group.com.acme.tool", teams, {}, false},
        {"group.com.acme.tool", teams, {}, false},
        {"ZZZZZ99999.group.com.acme", teams, {}, false},
        {"ZZZZZ99999.com.apple.notes", teams, {}, false},
        {"ZZZZZ99999.com.acme.tool", teams, {"Com.Acme.Tool.Helper"}, false},
        {"ZZZZZ99999.com.acme.tool.data", teams, {"com.acme.tool"}, false},
        {"ZZZZZ99999.com.acme.tool", teams, {"com.acme.other"}, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(isOrphanedGroupContainer(c.name, c.teams, c.installed), c.orphaned) << c.name;

    struct Claim {
        const char* name;
        std::set<std::string> claimed;
        bool claimedByGroup;
    };
    const Claim claims[] = {
        {"ABCDE12345.group.com.acme.shared", {"abcde12345.group.com.acme.shared"}, true},
        {"ABCDE12345.group.com.acme.shared", {"group.com.acme.shared.sub"}, true},
        {"com.acme.shared", {"abcde12345.groups.com.acme.shared"}, true},
        {"com.acme", {"group.com.acme.shared"}, true},
        {"com.acme.sharedx", {"group.com.acme.shared"}, false},
        {"acme", {"acme"}, false},
        {"com.acme.shared", {"abcde1234-.com.acme.shared"}, false},
    };
    for (const auto& c : claims)
        EXPECT_EQ(isClaimedByAppGroup(c.name, c.claimed), c.claimedByGroup) << c.name;

    const std::map<std::string, std::set<std::string>> owners = {
        {"group.com.acme.shared", {"Acme"}},
        {"group.com.acme.shared.sub", {"Acme Pro"}},
        {"group.com.other", {"Other"}}};
    EXPECT_EQ(appGroupClaimants("com.acme.shared", owners),
              (std::set<std::string>{"Acme", "Acme Pro"}));
}

TEST(LeftoverOwnership, EmptyApplicationsFolders) {
    const std::vector<ApplicationsEntry> entries = {
        {"Utilities", true, std::vector<std::string>{}},
        {"Only Finder", true, std::vector<std::string>{".DS_Store", "Icon\r", ".localized"}},
        {"Empty", true, std::vector<std::string>{}},
        {"Icon Named", true, std::vector<std::string>{"Icon"}},
        {"Unreadable", true, std::nullopt},
        {"Loose.APP", true, std::vector<std::string>{}},
        {".hidden", true, std::vector<std::string>{}},
        {"file", false, std::vector<std::string>{}},
    };
    EXPECT_EQ(emptyApplicationsFolders("/Applications/", entries),
              (std::vector<std::string>{"/Applications/Only Finder", "/Applications/Empty"}));
}

TEST(LeftoverOwnership, RunningAppsOutsideTheTrash) {
    const std::vector<RunningApp> apps = {
        {"Com.Acme.Tool", "/Applications/Tool.app"},
        {"com.no.path", std::nullopt},
        {"com.trashed", "/Users/a/.Trash/T.app"},
        {"com.trash.itself", "/Users/a/.Trash"},
        {"com.other.volume", "/Volumes/X/.Trashes/501/O.app"},
        {"com.trash.lookalike", "/Users/a/.TrashCan/L.app"},
        {"", "/Applications/Empty.app"},
        {std::nullopt, "/Applications/None.app"},
    };
    EXPECT_EQ(installedRunningBundleIDs(apps, "/Users/a/"),
              (std::set<std::string>{"com.acme.tool", "com.no.path", "com.trash.lookalike"}));
}

TEST(LeftoverOwnership, DiskWalksThroughFacts) {
    testing::TempDir dir;
    const auto info = [](const char* id) {
        return std::string(
                   "<?xml version=\"1.0\"?><plist "
                   "version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>") +
               id + "</string></dict></plist>";
    };
    dir.write("Machine/Synth.VST3/Contents/Info.plist", info("Com.Synth.VST"));
    dir.write("Machine/Loose.bundle/Info.plist", info("com.loose.bundle"));
    dir.write("Machine/Vendor/Inner.component/Contents/Info.plist", info("com.vendor.inner"));
    dir.write("Machine/Vendor/Deeper/Deep.component/Contents/Info.plist", info("com.too.deep"));
    dir.write("Machine/Vendor/NotPlugin.txt/Contents/Info.plist", info("com.not.plugin"));
    dir.write("Machine/.Hidden.vst/Contents/Info.plist", info("com.hidden"));
    dir.write("Machine/Blank.clap/Contents/Info.plist", info(""));
    dir.write("home/Library/QuickLook/Preview.qlgenerator/Contents/Info.plist",
              info("com.home.preview"));
    const std::string machine = dir / "Machine";
    const std::vector<std::string_view> views = {machine, "Library/QuickLook", "/nowhere"};
    EXPECT_EQ(installedPluginBundleIDs(views, dir / "home", Facts::real()),
              (std::set<std::string>{"com.synth.vst", "com.loose.bundle", "com.vendor.inner",
                                     "com.home.preview"}));

    const std::string app = dir / "Acme.app";
    dir.write("Acme.app/Contents/PlugIns/Share.appex/x");
    dir.write("Acme.app/Contents/PlugIns/Readme.txt");
    dir.write("Acme.app/Contents/Library/LaunchServices/com.acme.helper");
    dir.write("Acme.app/Contents/Library/LoginItems/Login.app/x");
    dir.write("Acme.app/Contents/Frameworks/Kit.framework/x");
    dir.write("Acme.app/Contents/XPCServices/Fetch.xpc/x");
    EXPECT_EQ(nestedCode(app, Facts::real()),
              (std::vector<std::string>{app + "/Contents/PlugIns/Share.appex",
                                        app + "/Contents/Library/LoginItems/Login.app",
                                        app + "/Contents/XPCServices/Fetch.xpc",
                                        app + "/Contents/Library/LaunchServices/com.acme.helper"}));

    // Only the extension declares the group; the app that carries it is its owner.
    const EntitlementsReader entitlements =
        [&](const std::string& path) -> std::vector<std::string> {
        if (path == app + "/Contents/PlugIns/Share.appex") return {"group.com.acme.shared"};
        return {};
    };
    EXPECT_EQ(appGroupOwners({AppRef{app, "Acme", ""}}, Facts::real(), entitlements),
              (std::map<std::string, std::set<std::string>>{{"group.com.acme.shared", {"Acme"}}}));
    EXPECT_EQ(claimedAppGroups({app}, Facts::real(), entitlements),
              (std::set<std::string>{"group.com.acme.shared"}));
}

}  // namespace

}  // namespace orvane
