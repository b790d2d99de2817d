// orvane startup end to end: on the recorded Mac built from real captures, on a real home, and
// through the daemon for an item under /Library.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <nlohmann/json.hpp>

#include "core/common/json_files.hpp"
#include "tests/cli/run_orvane.hpp"
#include "tests/support/daemon.hpp"
#include "tests/support/machine_lock.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::CommandCase;
using C = CommandCase;
const std::string& kAlex = testing::kAlexReplay;

TEST(StartupCommand, TheRecordedMac) {
    testing::TempDir scratch;
    const auto o = testing::runOrvane(kAlex + "startup --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    std::vector<std::string> paths;
    for (const auto& item : json["items"]) paths.push_back(item["path"]);
    EXPECT_EQ(paths, (std::vector<std::string>{
                         "/Users/alex/Library/LaunchAgents/com.google.keystone.agent.plist",
                         "/Users/alex/Library/LaunchAgents/com.spotify.webhelper.plist.disabled-by-orvane",
                         "/Users/alex/Library/LaunchAgents/com.vendor.vendor.updater.plist",
                         "/Library/LaunchDaemons/com.zerotier.one.plist",
                         "/Applications/Vendor.app/Contents/Library/LoginItems/Vendor Helper.app",
                         "/Users/alex/.Trash/Keepresso.app/Contents/Library/LoginItems/KeepressoHelper.app",
                     }));
    EXPECT_EQ(json["items"][0], (nlohmann::json{{"path", paths[0]},
                                                {"label", "com.google.keystone.agent"},
                                                {"scope", "user"},
                                                {"ownerName", "Google Chrome"},
                                                {"ownerMissing", true},
                                                {"enabled", true},
                                                {"isDaemon", false},
                                                {"fromTrash", false},
                                                {"canSwitch", true}}));
    EXPECT_EQ(json["items"][1]["enabled"], false);
    EXPECT_EQ(json["items"][2]["ownerName"], "Vendor");
    EXPECT_EQ(json["items"][4]["launchLabel"], "com.vendor.helper");
    EXPECT_EQ(json["items"][5]["ownerName"], "Keepresso (in the Trash)");
    EXPECT_EQ(json["items"][5]["canSwitch"], false);
    // The submitted login item of the real capture, owned by the app that registered it.
    ASSERT_EQ(json["registered"].size(), 1u) << json["registered"];
    const auto& helper = json["registered"][0];
    EXPECT_EQ(helper["id"], "gui/com.vendor.helper");
    EXPECT_EQ(helper["domain"], "gui");
    EXPECT_EQ(helper["job"]["type"], "Submitted");
    EXPECT_FALSE(helper["job"].contains("path"));  // "(submitted by smd.500)" is no path
    EXPECT_FALSE(helper.contains("program"));
    EXPECT_EQ(helper["owner"], (nlohmann::json{{"app",
                                                {{"_0", {{"path", "/Applications/Vendor.app"},
                                                         {"name", "Vendor"},
                                                         {"bundleID", "com.vendor.vendor"}}},
                                                 {"how", "associatedBundle"}}}}));
    EXPECT_EQ(helper["isStale"], false);

    const auto audit = testing::runOrvane(kAlex + "startup audit --json", scratch.path());
    ASSERT_EQ(audit.status, 0) << audit.err;
    // ZeroTier's plist is on the recorded disk; AdGuard and php-fpm are gone; the developer row is no item.
    EXPECT_EQ(nlohmann::json::parse(audit.out),
              (nlohmann::json{{"records", 3},
                              {"ghosts", {"AdGuard", "php-fpm"}},
                              {"unjudged", 0},
                              {"unjudgedReasons", nlohmann::json::object()},
                              {"description", ""}}));
}

TEST(StartupCommand, StatusAndAnswer) {
    const std::string nothing = "Nothing was changed: this is a recorded Mac.\n";
    const C cases[] = {
        {kAlex + "startup", 0, C::out, "gui/com.vendor.helper  Vendor", C::contains},
        {kAlex + "startup", 0, C::out, "off  login       com.spotify.webhelper", C::contains},
        {kAlex + "startup audit", 0, C::out, "2 ghosts, whose files are all gone", C::contains},
        {kAlex + "startup off com.vendor.vendor.updater", 1, C::out,
         "Would rename /Users/alex/Library/LaunchAgents/com.vendor.vendor.updater.plist to "
         "/Users/alex/Library/LaunchAgents/com.vendor.vendor.updater.plist.disabled-by-orvane and stop "
         "com.vendor.vendor.updater.\n"},
        {kAlex + "startup off /Library/LaunchDaemons/com.zerotier.one.plist", 1, C::err, "orvane: " + nothing},
        {kAlex + "startup on com.spotify.webhelper", 1, C::out,
         "Would rename /Users/alex/Library/LaunchAgents/com.spotify.webhelper.plist.disabled-by-orvane to "
         "/Users/alex/Library/LaunchAgents/com.spotify.webhelper.plist and load it.\n"},
        {kAlex + "startup audit --reset", 1, C::out, "Would ask the helper to reset", C::contains},
        {kAlex + "startup setenv EDITOR vim", 1, C::err, "orvane: " + nothing},
        {kAlex + "startup off 'Vendor Helper'", 1, C::out,
         "• Vendor Helper lies inside Vendor: only the app itself can switch it off, or uninstalling the app.\n"},
        {kAlex + "startup off com.example.none", 2, C::err, "No startup item is called com.example.none", C::contains},
        {kAlex + "startup on com.vendor.vendor.updater", 2, C::err, "No switched-off item", C::contains},
        {kAlex + "startup setenv 1BAD x", 2, C::err, "\"1BAD\" is not a variable name", C::contains},
        {kAlex + "startup unsetenv 'A/B'", 2, C::err, "is not a variable name", C::contains},
        {"startup audit", 1, C::out, "/usr/bin/sfltool could not be run", C::contains},
        // A file where the launch folder should be: the agent cannot be written, and the person is told.
        {"--ledger-dir {D}/ledger startup setenv FOO bar", 1, C::out, "set for this login only", C::contains,
         [](const testing::TempDir& d) { d.write("Library/LaunchAgents"); }, "HOME={D}"},
    };
    testing::expectCommands(cases);
}

// This machine: a plist of the user's own goes off and comes back byte for byte.
TEST(StartupCommand, OffAndOnInARealHome) {
    testing::TempDir d;
    const std::string bytes = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                              "<key>Label</key><string>com.example.agent</string>"
                              "<key>Program</key><string>/nowhere/agent</string></dict></plist>\n";
    const std::string plist = d.write("Library/LaunchAgents/com.example.agent.plist", bytes);
    const std::string env = "HOME=" + d.path();
    const std::string ledger = " --ledger-dir " + d.path() + "/ledger ";

    auto o = testing::runOrvane("startup", d.path(), env);
    EXPECT_EQ(o.status, 0) << o.err;
    // The machine's own launch folders are listed too, and a test running beside this one may add
    // to them as root: the columns are matched as words, whatever their padding.
    const auto row = o.out.find("com.example.agent");
    ASSERT_NE(row, std::string::npos) << o.out;
    std::string line = o.out.substr(o.out.rfind('\n', row) + 1);
    line = line.substr(0, line.find('\n'));
    std::string words;
    std::istringstream split(line);
    for (std::string word; split >> word;) words += (words.empty() ? "" : " ") + word;
    EXPECT_EQ(words, "on login com.example.agent unknown owner (program missing) " + plist);
    o = testing::runOrvane(ledger + "startup off com.example.agent", d.path(), env);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "• com.example.agent — switched off\n");
    EXPECT_FALSE(fs::exists(plist));
    o = testing::runOrvane(ledger + "startup off com.example.agent", d.path(), env);
    EXPECT_EQ(o.status, 1);
    o = testing::runOrvane(ledger + "startup on " + plist, d.path(), env);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "• com.example.agent — switched back on\n");
    EXPECT_EQ(readFile(plist), bytes);
}

// An item under /Library goes through the daemon, which renames it as root.
TEST(StartupCommand, ASystemItemThroughTheHelper) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the helper and to write /Library/LaunchDaemons";
    testing::MachineFoldersLock lock;
    testing::TempDir d;
    const fs::path folder = "/Library/LaunchDaemons";
    const bool made = !fs::exists("/Library");
    fs::create_directories(folder);
    const std::string label = "com.orvanetest.daemon" + std::to_string(::getpid());
    const std::string plist = (folder / (label + ".plist")).string();
    const std::string bytes = "<?xml version=\"1.0\"?><plist><dict><key>Label</key><string>" + label +
                              "</string></dict></plist>";
    testing::writeFile(plist, bytes);
    {
        testing::Daemon daemon(d.path(), "startup", {ORVANE_BINARY});
        const std::string socket = " --socket " + daemon.socket();
        auto o = testing::runOrvane("startup off " + label + socket, d.path());
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_TRUE(fs::exists(plist + ".disabled-by-orvane"));
        o = testing::runOrvane("startup on " + label + socket, d.path());
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_EQ(o.out, "• " + label + " — switched back on\n");
        EXPECT_EQ(readFile(plist), bytes);
    }
    std::error_code ignored;
    fs::remove(plist, ignored);
    fs::remove(plist + ".disabled-by-orvane", ignored);
    if (made) fs::remove_all("/Library", ignored);
}

}  // namespace
}  // namespace orvane
