#include "core/apps/leftovers.hpp"

#include <gtest/gtest.h>

#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/uninstall_plan.hpp"
#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;
using testing::writeFile;

// A Mac with two apps, one of them in a vendor's folder, and what gone apps and these two left.
class RecordedMac : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir / "home", "/Users/alex\n");
        writeFile(dir / "tools.json", "[]");
        app("Applications/Acme/Acme Tool.app", "com.acme.tool");
        app("Applications/Slack.app", "com.tinyspeck.slackmacgap");
        put("Applications/Old Stuff/.DS_Store");
        mkdir("Applications/Utilities");
        mkdir("Applications/Unread Stuff/sub");
        for (const char* name : {"com.gone.app.plist", "com.acme.tool.plist", "com.acme.tool.helper.agent.plist",
                                 "com.acme.widget.plist", "com.apple.finder.plist", "ABCDE12345.com.gone.shared.plist",
                                 "com.gone.app.AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE.plist", "loose.plist"})
            put("Users/alex/Library/Preferences/" + std::string(name));
        put("Users/alex/Library/Caches/com.acme.tool/Cache.db");
        put("Users/alex/Library/Caches/com.gone.app/Cache.db");
        put("Users/alex/Library/Group Containers/ABCDE12345.group.com.gone/x");
        put("Users/alex/Library/Application Support/Firefox/profiles.ini");
        put("Users/alex/Library/Application Support/Slack/storage");
        put("Users/alex/Library/Application Support/Acme/Tool/state");
        put("Users/alex/Library/Application Support/Acme/PACE/licence");
        put("Library/LaunchDaemons/com.gone.app.daemon.plist");
        // Installed by a package, not an app: its program says it is still here.
        put("Library/LaunchDaemons/com.pkg.only.daemon.plist",
            "<plist version=\"1.0\"><dict><key>Label</key><string>com.pkg.only.daemon</string><key>Program</key>"
            "<string>/usr/local/libexec/pkgd</string></dict></plist>");
        put("usr/local/libexec/pkgd");
        put("Library/Application Support/Firefox/x");
        put("Library/Application Support/Apple/x");
    }

    Facts facts() {
        auto load = loadRecording(dir.path());
        EXPECT_TRUE(load.recording) << load.error;
        return recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));
    }
    void app(const std::string& path, std::string_view id) { put(path + "/Contents/Info.plist", testing::infoPlistWithIdentifier(id)); }
    void put(const std::string& relative, std::string_view text = "x") { writeFile(dir / ("root/" + relative), text); }
    void mkdir(const std::string& relative) { dir.mkdir("root/" + relative); }

    TempDir dir;
};

TEST_F(RecordedMac, OffersWhatNothingInstalledOwns) {
    const Facts mac = facts();
    const auto installed = installedApps(mac);
    ASSERT_TRUE(installed.complete);
    const auto rows = leftoverRows("/Users/alex", leftoverOwners(installed.apps, "/Users/alex", mac), mac);
    const std::string prefs = "/Users/alex/Library/Preferences/";
    // Kept: the apps' own names and their helpers', the vendor's other product, Apple's, a team-led
    // name while no team can be read, a name with no reverse-DNS shape, an installed app's curated
    // folder, and Apple's folder of the machine.
    EXPECT_EQ(rows, (std::vector<LeftoverRow>{
                        {prefs + "com.gone.app.AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE.plist", LeftoverRule::reverseDNS, "com.gone.app"},
                        {prefs + "com.gone.app.plist", LeftoverRule::reverseDNS, "com.gone.app"},
                        {"/Users/alex/Library/Caches/com.gone.app", LeftoverRule::reverseDNS, "com.gone.app"},
                        {"/Users/alex/Library/Application Support/Firefox", LeftoverRule::freeform, "org.mozilla.firefox"},
                        {"/Library/Application Support/Firefox", LeftoverRule::freeform, "org.mozilla.firefox"},
                        {"/Library/LaunchDaemons/com.gone.app.daemon.plist", LeftoverRule::reverseDNS, "com.gone.app.daemon"},
                        {"/Applications/Old Stuff", LeftoverRule::emptyFolder, std::nullopt},
                    }));
    EXPECT_TRUE(leftoverBelongsTo(rows[5], "com.gone.app"));
    EXPECT_FALSE(leftoverBelongsTo(rows[5], "com.gone.ap"));  // a prefix, not a component
    EXPECT_FALSE(leftoverBelongsTo(rows[6], "com.gone.app"));
}

TEST_F(RecordedMac, AnAppOfUnknownIdentityKeepsEveryName) {
    put("Applications/Broken.app/Contents/Info.plist", "not a plist");
    const Facts mac = facts();
    const auto owners = leftoverOwners(installedApps(mac).apps, "/Users/alex", mac);
    EXPECT_EQ(owners.unidentified, std::vector<std::string>{"/Applications/Broken.app"});
    EXPECT_EQ(leftoverRows("/Users/alex", owners, mac),
              (std::vector<LeftoverRow>{{"/Applications/Old Stuff", LeftoverRule::emptyFolder, std::nullopt}}));
}

TEST_F(RecordedMac, UninstallPlanTakesOnlyWhatIsTheAppsAlone) {
    const Facts mac = facts();
    const auto plan = uninstallPlan("/Applications/Acme/Acme Tool.app", "/Users/alex", installedApps(mac).apps, mac);
    EXPECT_EQ(plan.bundleID, "com.acme.tool");
    EXPECT_FALSE(plan.cask);
    std::vector<std::pair<std::string, UninstallSource>> rows;
    for (const auto& row : plan.rows) rows.emplace_back(row.path, row.source);
    const std::string support = "/Users/alex/Library/Application Support/Acme/";
    // The widget of the same vendor is another product's, and the licence beside the app's data keeps
    // the vendor's folder from going whole.
    EXPECT_EQ(rows, (std::vector<std::pair<std::string, UninstallSource>>{
                        {"/Applications/Acme/Acme Tool.app", UninstallSource::bundle},
                        {"/Users/alex/Library/Preferences/com.acme.tool.helper.agent.plist", UninstallSource::leftover},
                        {"/Users/alex/Library/Preferences/com.acme.tool.plist", UninstallSource::leftover},
                        {"/Users/alex/Library/Caches/com.acme.tool", UninstallSource::leftover},
                        {support + "Tool", UninstallSource::vendorFolder},
                        {"/Applications/Acme", UninstallSource::emptiedFolder},
                    }));
    for (const auto& row : plan.rows) EXPECT_TRUE(row.on) << row.path;
}

}  // namespace
}  // namespace orvane
