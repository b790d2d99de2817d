// orvane leftovers, uninstall and trash-apps end to end: on the recorded Mac with its Homebrew
// cask, and on a real home whose removals land in the ledger's test Trash.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"
#include "tests/support/daemon.hpp"
#include "tests/support/machine_lock.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::CommandCase;
using C = CommandCase;
const std::string& kAlex = testing::kAlexReplay;

std::vector<std::string> field(const nlohmann::json& rows, const char* key) {
    std::vector<std::string> values;
    for (const auto& row : rows) values.push_back(row.value(key, "-"));
    return values;
}

TEST(AppsCommands, TheRecordedMac) {
    testing::TempDir scratch;
    auto o = testing::runOrvane(kAlex + "leftovers --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    auto json = nlohmann::json::parse(o.out);
    // Docker and Vendor are installed: nothing of theirs; sizes are not measured on a recording.
    EXPECT_EQ(field(json["leftovers"], "path"),
              (std::vector<std::string>{
                  "/Users/alex/Library/Preferences/com.oldvendor.gone.plist",
                  "/Users/alex/Library/Caches/com.oldvendor.gone",
                  "/Users/alex/Library/Application Support/Firefox",
                  "/Users/alex/Library/LaunchAgents/com.spotify.webhelper.plist.disabled-by-orvane",
                  "/Applications/Old Tools",
              }));
    EXPECT_EQ(json["leftovers"][2], (nlohmann::json{{"path", "/Users/alex/Library/Application Support/Firefox"},
                                                    {"rule", "freeform"},
                                                    {"id", "org.mozilla.firefox"}}));
    EXPECT_EQ(field(json["leftovers"], "rule").back(), "emptyFolder");
    EXPECT_FALSE(json.contains("totalBytes"));

    o = testing::runOrvane(kAlex + "uninstall /Applications/Docker.app --dry-run --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["cask"], (nlohmann::json{{"token", "docker"}, {"command", "brew uninstall --cask docker"}, {"needsAdmin", true}}));
    // Homebrew removes the bundle; what the app left comes first, then what the cask's own list adds.
    EXPECT_EQ(field(json["rows"], "path"), (std::vector<std::string>{
                                               "/Users/alex/Library/Preferences/com.docker.docker.plist",
                                               "/Users/alex/Library/Containers/com.docker.docker",
                                               "/Users/alex/.docker",
                                           }));
    EXPECT_EQ(field(json["rows"], "source"), (std::vector<std::string>{"leftover", "leftover", "zap"}));

    const C cases[] = {
        {kAlex + "uninstall /Applications/Docker.app --dry-run", 0, C::out, "    brew uninstall --cask docker   (Homebrew will ask for an administrator's password)\n", C::contains},
        {kAlex + "uninstall /Applications/Docker.app --yes", 1, C::out,
         "Would run brew uninstall --cask docker.\nWould move /Users/alex/Library/Preferences/com.docker.docker.plist to the "
         "Trash.\n",
         C::contains},
        {kAlex + "uninstall /Applications/Docker.app --yes", 1, C::err,
         "orvane: Nothing was changed: this is a recorded Mac.\n"},
        {kAlex + "uninstall /Applications/Nothing.app", 2, C::err, "/Applications/Nothing.app does not exist", C::contains},
        {kAlex + "uninstall '/Applications/Old Tools'", 2, C::err, "has no Contents/Info.plist", C::contains},
        {kAlex + "trash-apps delete Keepresso.app", 1, C::out,
         "Would delete /Users/alex/.Trash/Keepresso.app for good.\n"},
        {kAlex + "trash-apps", 0, C::out, "listed 2, apps 2, links 4, Full Disk Access yes, readable yes\n", C::contains},
    };
    testing::expectCommands(cases);

    o = testing::runOrvane(kAlex + "trash-apps --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    json = nlohmann::json::parse(o.out);
    EXPECT_EQ(field(json["apps"], "displayName"), (std::vector<std::string>{"Keepresso", "Notefox"}));
    EXPECT_EQ(json["apps"][0]["stale"], (nlohmann::json{{"labels", {"sh.gyorgy.keepresso.helper"}}, {"confirmed", false}}));
    EXPECT_FALSE(json["apps"][1].contains("stale"));
    EXPECT_FALSE(json["apps"][0].contains("needsAdmin"));  // not known on a recording
}

// This machine: the app and its leftovers go to the ledger's Trash; what is not an app is refused.
TEST(AppsCommands, UninstallInARealHome) {
    testing::TempDir d;
    const std::string app = d.write("Applications/Example.app/Contents/Info.plist", testing::infoPlistWithIdentifier("com.example.tool"));
    const std::string prefs = d.write("Library/Preferences/com.example.tool.plist");
    const std::string caches = d.write("Library/Caches/com.example.tool/Cache.db");
    const std::string other = d.write("Library/Preferences/com.other.gone.plist");
    const std::string env = "HOME=" + d.path();
    const std::string ledger = " --ledger-dir " + d.path() + "/ledger ";
    const std::string bundle = d.path() + "/Applications/Example.app";

    // Not asked on a terminal and no --yes: nothing moves.
    auto o = testing::runOrvane(ledger + "uninstall " + bundle, d.path(), env);
    EXPECT_EQ(o.status, 1) << o.err;
    EXPECT_NE(o.out.find("Nothing was removed: confirm on a terminal, or give --yes."), std::string::npos) << o.out;
    EXPECT_TRUE(fs::exists(app));

    o = testing::runOrvane(ledger + "leftovers --json", d.path(), env);
    ASSERT_EQ(o.status, 0) << o.err;
    auto json = nlohmann::json::parse(o.out);
    // The machine's own folders are judged too, and another test may be writing there as root.
    nlohmann::json mine = nlohmann::json::array();
    for (const auto& row : json["leftovers"])
        if (row["path"].get<std::string>().starts_with(d.path())) mine.push_back(row);
    EXPECT_EQ(field(mine, "path"), std::vector<std::string>{other});
    EXPECT_GT(mine[0]["sizeBytes"].get<std::int64_t>(), 0);

    o = testing::runOrvane(ledger + "uninstall " + bundle + " --yes --json", d.path(), env);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    json = nlohmann::json::parse(o.out);
    EXPECT_EQ(field(json["rows"], "source"), (std::vector<std::string>{"bundle", "leftover", "leftover"}));
    EXPECT_EQ(json["done"], true);
    EXPECT_FALSE(fs::exists(bundle));
    EXPECT_FALSE(fs::exists(prefs));
    EXPECT_FALSE(fs::exists(fs::path(caches).parent_path()));
    EXPECT_TRUE(fs::exists(d.path() + "/ledger/Trash/Example.app/Contents/Info.plist"));
    EXPECT_TRUE(fs::exists(d.path() + "/ledger/Trash/com.example.tool.plist"));
    EXPECT_TRUE(fs::exists(other));  // another app's, not this one's

    const C cases[] = {
        {"uninstall {D}/pipe.app", 2, C::err, "is not an app: an app is a folder", C::contains,
         [](const testing::TempDir& t) { ::mkfifo((t.path() + "/pipe.app").c_str(), 0600); }},
        {"uninstall {D}/A.app", 2, C::err, "its Contents/Info.plist is not a file", C::contains,
         [](const testing::TempDir& t) {
             t.mkdir("A.app/Contents");
             ::mkfifo((t.path() + "/A.app/Contents/Info.plist").c_str(), 0600);
         }},
        {"uninstall {D}", 2, C::err, "has no Contents/Info.plist", C::contains},
        {"uninstall {D}/gone.app --dry-run", 2, C::err, "does not exist", C::contains},
    };
    testing::expectCommands(cases);
}

TEST(AppsCommands, TrashAppsInARealHome) {
    const C cases[] = {
        {"trash-apps delete Foo.app", 0, C::out, "Foo.app: deleted\n", C::whole,
         [](const testing::TempDir& t) { t.write(".Trash/Foo.app/Contents/Info.plist", testing::infoPlistWithIdentifier("com.example.foo")); },
         "HOME={D}"},
        {"trash-apps delete Foo.app ../x.app", 1, C::out, "../x.app: not deleted — ", C::contains,
         [](const testing::TempDir& t) { t.write(".Trash/Foo.app/Contents/Info.plist", testing::infoPlistWithIdentifier("com.example.foo")); },
         "HOME={D}"},
        {"trash-apps", 0, C::out, "• Bar  (Bar.app 12-04-33)  com.example.bar\n", C::contains,
         [](const testing::TempDir& t) { t.write(".Trash/Bar.app 12-04-33/Contents/Info.plist", testing::infoPlistWithIdentifier("com.example.bar")); },
         "HOME={D}"},
        {"trash-apps", 0, C::out, "The Trash ({D}/.Trash) could not be read", C::contains,
         [](const testing::TempDir& t) { t.write(".Trash"); }, "HOME={D}"},
        {"trash-apps", 0, C::out, "There is no Trash folder ({D}/.Trash), so no apps in it.", C::contains, {},
         "HOME={D}"},
    };
    testing::expectCommands(cases);
}

// What an app left in the machine's Library is set aside by the helper into the user's Trash.
TEST(AppsCommands, UninstallSetsTheMachinesLeftoversAsideThroughTheHelper) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the helper and to write /Library/Preferences";
    testing::MachineFoldersLock lock;
    testing::TempDir d;
    const std::string id = "com.orvanetest" + std::to_string(::getpid()) + ".gone";
    const bool made = !fs::exists("/Library");
    const std::string plist = "/Library/Preferences/" + id + ".plist";
    testing::writeFile(plist, "x");
    d.write("Applications/Gone.app/Contents/Info.plist", testing::infoPlistWithIdentifier(id));
    d.mkdir(".Trash");
    {
        testing::Daemon daemon(d.path(), "uninstall", {ORVANE_BINARY});
        const auto o = testing::runOrvane("--ledger-dir " + d.path() + "/ledger uninstall " + d.path() +
                                              "/Applications/Gone.app --yes --socket " + daemon.socket(),
                                          d.path(), "HOME=" + d.path());
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_NE(o.out.find("• " + plist + " — moved to the Trash"), std::string::npos) << o.out;
        EXPECT_FALSE(fs::exists(plist));
        EXPECT_TRUE(fs::exists(d.path() + "/.Trash/" + id + ".plist"));
        EXPECT_TRUE(fs::exists(d.path() + "/ledger/Trash/Gone.app"));
    }
    std::error_code ignored;
    fs::remove(plist, ignored);
    if (made) fs::remove_all("/Library", ignored);
}

TEST(AppsCommands, TheAppListOnARealHome) {
    testing::TempDir d;
    for (const auto& [path, id] : std::vector<std::pair<std::string, std::string>>{
             {"Applications/Suite/Alpha.app", "org.suite.alpha"},
             {"Applications/Suite/Beta.app", "org.suite.beta"},
             {"Applications/Xeno.app", "com.acme.xeno"},
             {"Applications/Yak.app", "com.acme.yak"},
             {"Applications/Old/Yak.app", "com.acme.yak"},
         })
        d.write(path + "/Contents/Info.plist", testing::infoPlistWithIdentifier(id));
    const std::string env = "HOME=" + d.path();
    auto o = testing::runOrvane("apps --group --sort nameAsc --json", d.path(), env);
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    const std::string apps = d.path() + "/Applications/";
    // A shared folder wins over the vendor: the Yak in Old has a folder of its own and no sibling.
    EXPECT_EQ(field(json["rows"], "id"),
              (std::vector<std::string>{"g:vendor:acme", "ga:" + apps + "Xeno.app", "ga:" + apps + "Yak.app",
                                        "g:folder:" + apps + "Suite", "ga:" + apps + "Suite/Alpha.app",
                                        "ga:" + apps + "Suite/Beta.app", "a:" + apps + "Old/Yak.app"}));
    EXPECT_EQ(json["rows"][0]["name"], "Acme");
    EXPECT_EQ(json["rows"][1]["chip"]["text"], "Recently installed");

    o = testing::runOrvane("apps copies --json", d.path(), env);
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(field(nlohmann::json::parse(o.out)["groups"][0], "path"),
              (std::vector<std::string>{apps + "Old/Yak.app", apps + "Yak.app"}));

    const std::string ledger = " --ledger-dir " + d.path() + "/ledger ";
    o = testing::runOrvane(ledger + "genuine " + apps + "Xeno.app", d.path(), env);
    EXPECT_EQ(o.status, 1);  // codesign is not here: no verdict, and never red for it
    EXPECT_EQ(o.out.substr(0, o.out.find('\n')), "Xeno: no verdict (the signature could not be checked)");
    EXPECT_TRUE(fs::exists(d.path() + "/ledger/genuine-cache.json"));

    const C cases[] = {
        {"apps --sort biggest", 2, C::err, "--sort must be sizeDesc, sizeAsc, nameAsc, nameDesc, forgotten or recent",
         C::contains},
        {"apps --filter some", 2, C::err, "--filter must be all or unused", C::contains},
        {"genuine {D}", 2, C::err, "is not an app bundle", C::contains},
    };
    testing::expectCommands(cases);
}

TEST(AppsCommands, GenuineOnTheRecordedMac) {
    const C cases[] = {
        {kAlex + "genuine '/Applications/Google Chrome.app'", 0, C::out,
         "Google Chrome: gold\n  Signed by Google LLC · notarised\n  Vendor: signed by Google's own team (EQHXZ8M8AV)\n"},
        {kAlex + "genuine '/Users/alex/Downloads/Google Chrome.app'", 1, C::out,
         "Google Chrome: red\n  Signed by Chrome Update Team · notarisation not confirmed on this Mac\n"
         "  Vendor: named like Google's app, but signed by team K7Q2M4X9ZP, not Google\n"
         "  Downloaded with Safari on 2023-11-30T20:26:40Z from https://chrome-update.example/download\n"},
        {kAlex + "genuine '/Applications/Google Chrome.app' --online", 0, C::out,
         "  Gatekeeper: accepted (Notarized Developer ID)\n", C::contains},
        {kAlex + "apps reset-permissions com.apple.Safari", 1, C::out,
         "com.apple.Safari: refused — not an allowed bundle id\n"},
        {kAlex + "apps reset-permissions com.google.Chrome", 1, C::out,
         "com.google.Chrome: otherCopyInstalled — /Applications/Google Chrome.app\n"},
        {kAlex + "apps reset-permissions com.oldvendor.gone", 1, C::err,
         "orvane: Nothing was changed: this is a recorded Mac.\n"},
        {kAlex + "apps", 0, C::out, "Google Chrome  130.0.6723.92 (6723.92)  Starts automatically", C::contains},
    };
    testing::expectCommands(cases);
    testing::TempDir scratch;
    const auto o = testing::runOrvane(kAlex + "genuine '/Users/alex/Downloads/Google Chrome.app' --json", scratch.path());
    const auto json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["tier"], "red");
    EXPECT_EQ(json["vendor"]["mismatch"]["expected"], nlohmann::json({"EQHXZ8M8AV"}));
    EXPECT_EQ(json["download"]["pageURL"], "https://chrome-update.example/download");
}

}  // namespace
}  // namespace orvane
