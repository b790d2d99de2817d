#include "core/startup/startup_items.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "core/apps/app_bundle_inventory.hpp"
#include "core/common/json_files.hpp"
#include "core/common/property_list.hpp"
#include "core/common/replay.hpp"
#include "core/ledger/ledger.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

std::string plist(const nlohmann::json& value, PropertyListFormat format = PropertyListFormat::xml) {
    return propertyListData(value, format).value();
}

// A Mac laid out under DIR/root, read as the recorded Mac reads it: /Library is DIR/root/Library.
struct Mac {
    TempDir dir;
    Facts facts;
    explicit Mac(std::set<std::string> refused = {}) {
        Recording r;
        r.dir = dir.path();
        r.home = "/Users/amy";
        r.refused = std::move(refused);
        dir.mkdir("root/Users/amy");
        facts = recordedFacts(std::make_shared<const Recording>(std::move(r)));
    }
    std::string write(const std::string& path, std::string_view bytes) const { return dir.write("root" + path, bytes); }
    void app(const std::string& path, const std::string& bundleID) const {
        write(path + "/Contents/Info.plist", plist({{"CFBundleIdentifier", bundleID}}));
    }
};

TEST(StartupItems, TheThreeFoldersThenWhatAppsCarry) {
    Mac mac;
    const std::string agents = "/Users/amy/Library/LaunchAgents";
    mac.app("/Applications/Foo.app", "com.vendor.foo");
    mac.app("/Applications/Foo.app/Contents/Library/LoginItems/FooHelper.app", "com.vendor.foo.helper");
    mac.app("/Applications/Utilities/Apple Thing.app", "com.apple.thing");
    mac.write("/Applications/Utilities/Apple Thing.app/Contents/Library/LaunchAgents/com.apple.t.plist",
              plist({{"Label", "com.apple.t"}}));
    mac.write("/Applications/Foo.app/Contents/MacOS/agent", "x");
    mac.write(agents + "/com.vendor.agent.plist",
              plist({{"Label", "com.vendor.agent"},
                     {"ProgramArguments", {"/Applications/Foo.app/Contents/MacOS/agent", "--quiet"}}}));
    // No Label, binary, switched off, its program gone: owned by the label's vendor.
    mac.write(agents + "/com.vendor.old.plist.disabled-by-orvane",
              plist({{"Program", "/opt/gone/tool"}}, PropertyListFormat::binary));
    mac.write(agents + "/com.apple.foo.plist", plist({{"Label", "com.apple.foo"}}));
    mac.write(agents + "/com.vendor.disguised.plist", plist({{"Label", "com.apple.vendor"}}));
    mac.write(agents + "/com.other.lib.plist", plist({{"Label", "com.other.lib"}, {"Program", "/usr/libexec/x"}}));
    mac.write(agents + "/broken.plist", "<?xml version=\"1.0\"?><plist><dict><key>Label");
    mac.write(agents + "/array.plist", plist(nlohmann::json::array({"a"})));
    mac.write(agents + "/notes.txt", "x");
    // A link must not make the page read what lies elsewhere; a FIFO must not hang it.
    fs::create_symlink(mac.dir / "root/Users/amy/Library/LaunchAgents/com.vendor.agent.plist",
                       mac.dir / "root/Users/amy/Library/LaunchAgents/link.plist");
    ASSERT_EQ(::mkfifo((mac.dir / "root/Users/amy/Library/LaunchAgents/fifo.plist").c_str(), 0644), 0);
    mac.write("/Library/LaunchDaemons/org.x.daemon.plist",
              plist({{"Label", "org.x.daemon"}, {"Program", "helperd"}, {"AssociatedBundleIdentifiers", "com.vendor.foo"}},
                    PropertyListFormat::binary));
    mac.app("/Users/amy/.Trash/Old.app", "com.old.app");
    mac.app("/Users/amy/.Trash/Old.app/Contents/Library/LoginItems/Old Login.app", "com.old.login");

    const InstalledApps installed = installedApps(mac.facts);
    EXPECT_TRUE(installed.complete);
    ASSERT_EQ(installed.apps, (std::vector<AppRef>{{"/Applications/Foo.app", "Foo", "com.vendor.foo"},
                                                   {"/Applications/Utilities/Apple Thing.app", "Apple Thing",
                                                    "com.apple.thing"}}));

    using S = StartupItem::Scope;
    const std::vector<StartupItem> expected = {
        {agents + "/com.vendor.agent.plist", "com.vendor.agent", S::user, "Foo", false, true, false, false, {}},
        {agents + "/com.vendor.old.plist.disabled-by-orvane", "com.vendor.old", S::user, "Foo", true, false, false,
         false, {}},
        {"/Library/LaunchDaemons/org.x.daemon.plist", "org.x.daemon", S::system, "Foo", false, true, true, false, {}},
        {"/Applications/Foo.app/Contents/Library/LoginItems/FooHelper.app", "FooHelper", S::insideApp, "Foo", false,
         true, false, false, "com.vendor.foo.helper"},
        {"/Users/amy/.Trash/Old.app/Contents/Library/LoginItems/Old Login.app", "Old Login", S::insideApp,
         "Old (in the Trash)", true, true, false, true, "com.old.login"},
    };
    EXPECT_EQ(scanStartupItems(installed.apps, "/Users/amy", mac.facts), expected);

    // A damaged switched-off file is still listed, by its name; Apple's are not.
    mac.write(agents + "/com.apple.x.plist.disabled-by-orvane", plist({{"Label", "com.apple.x"}}));
    mac.write("/Library/LaunchAgents/org.y.plist.disabled-by-orvane", "damaged");
    EXPECT_EQ(disabledAgents({agents, "/Library/LaunchAgents", "/Library/LaunchDaemons"}, mac.facts),
              (std::vector<DisabledAgent>{{agents + "/com.vendor.old.plist.disabled-by-orvane", "com.vendor.old"},
                                          {"/Library/LaunchAgents/org.y.plist.disabled-by-orvane", "org.y"}}));
}

TEST(StartupItems, DisplayOwner) {
    const std::vector<AppRef> apps = {{"/Applications/Foo.app", "Foo", "com.vendor.foo"},
                                      {"/Applications/Bar.app", "Bar", "com.apple.bar"},
                                      {"/Applications/Baz.app", "Baz", "org.baz.app"}};
    struct Case {
        std::optional<std::string> program;
        std::vector<std::string> associated;
        std::string label;
        std::optional<std::string> owner;
    };
    const Case cases[] = {
        {"/Applications/Baz.app/Contents/MacOS/x", {"com.vendor.foo"}, "com.vendor.x", "Baz"},  // the program first
        {"/Applications/Foo.apple/x", {}, "a.b", std::nullopt},  // a bundle's path is not a text prefix
        {std::nullopt, {"org.baz.app"}, "com.vendor.x.y", "Baz"},
        {std::nullopt, {}, "com.vendor.x.y", "Foo"},   // any app of the vendor
        {std::nullopt, {}, "com.vendor", std::nullopt},  // two pieces name no vendor
        {std::nullopt, {}, "com..apple.x", std::nullopt},  // Apple's apps own nothing this way
    };
    for (const auto& c : cases)
        EXPECT_EQ(launchItemOwner(c.program, c.associated, c.label, apps), c.owner) << c.label;
}

TEST(StartupItems, AppInventoryIsBoundedAndSaysSo) {
    Mac mac({"/Applications/Locked"});
    for (const char* folder : {"/Applications/A.app", "/Applications/Sub/B.app", "/Applications/.hidden/H.app",
                               "/Applications/d2/d3/d4/C.app", "/Applications/d2/d3/d4/d5/Deep.app",
                               "/Applications/Locked/L.app", "/Elsewhere/Linked.app"})
        mac.dir.mkdir("root" + std::string(folder));
    fs::create_symlink(mac.dir / "root/Elsewhere", mac.dir / "root/Applications/link");
    const auto all = appBundleInventory("/Applications", 4, 100, mac.facts);
    EXPECT_EQ(all.paths, (std::vector<std::string>{"/Applications/A.app", "/Applications/Sub/B.app",
                                                   "/Applications/d2/d3/d4/C.app"}));
    EXPECT_FALSE(all.complete);  // Locked exists and could not be listed
    const auto cut = appBundleInventory("/Applications/Sub", 4, 1, mac.facts);
    EXPECT_EQ(cut.paths, (std::vector<std::string>{"/Applications/Sub/B.app"}));
    EXPECT_TRUE(cut.complete);
    EXPECT_FALSE(appBundleInventory("/Applications/d2", 4, 2, mac.facts).complete);
    EXPECT_TRUE(appBundleInventory("/Nowhere", 4, 2, mac.facts).complete);  // a missing folder is empty
}

// Real renames on a real disk: switching off and back on gives the same bytes, and every refusal
// leaves both names as they were.
TEST(StartupItems, SwitchOffAndBackOnOnDisk) {
    TempDir d;
    const std::string bytes = plist({{"Label", "com.x.agent"}}, PropertyListFormat::binary);
    const std::string original = d.write("LaunchAgents/com.x.agent.plist", bytes);
    const auto off = switchOffUserAgent(original);
    ASSERT_TRUE(off.ok) << off.problem;
    EXPECT_FALSE(fs::exists(original));
    const auto agents = disabledAgents({d / "LaunchAgents"});
    ASSERT_EQ(agents, (std::vector<DisabledAgent>{{original + ".disabled-by-orvane", "com.x.agent"}}));
    const auto on = restoreDisabledAgent(agents.front(), true);
    EXPECT_EQ(on, (AgentRestore{true, "• com.x.agent — switched back on"}));
    EXPECT_EQ(readFile(original), bytes);

    d.write("LaunchAgents/y.plist", "new");
    d.write("LaunchAgents/y.plist.disabled-by-orvane", "old");
    fs::create_symlink(original, d / "LaunchAgents/l.plist.disabled-by-orvane");
    struct Case {
        std::string path;
        std::string line;
    };
    const Case refusals[] = {
        {original, "• A: not switched back on — not a switched-off login item."},
        {d / "LaunchAgents/l.plist.disabled-by-orvane", "• A: not switched back on — it is a symbolic link."},
        {d / "LaunchAgents/y.plist.disabled-by-orvane",
         "• A: the app has already put its own copy back; the old switched-off copy was left as it is."},
    };
    for (const auto& c : refusals) EXPECT_EQ(restoreDisabledAgent({c.path, "A"}, false), (AgentRestore{false, c.line}));
    EXPECT_EQ(readFile(d / "LaunchAgents/y.plist"), "new");
    EXPECT_EQ(readFile(d / "LaunchAgents/y.plist.disabled-by-orvane"), "old");

    // Switching off never replaces, never renames through a link.
    EXPECT_FALSE(switchOffUserAgent(d / "LaunchAgents/y.plist").ok);
    fs::create_symlink(original, d / "LaunchAgents/m.plist");
    EXPECT_FALSE(switchOffUserAgent(d / "LaunchAgents/m.plist").ok);
    fs::create_directory_symlink(d / "LaunchAgents", d / "Linked");
    EXPECT_FALSE(switchOffUserAgent(d / "Linked/com.x.agent.plist").ok);
    EXPECT_EQ(readFile(d / "LaunchAgents/y.plist"), "new");
    EXPECT_TRUE(fs::exists(original));
}

TEST(StartupItems, PersistentVariable) {
    TempDir d;
    Ledger::setTestDirOverride(d / "ledger");
    std::vector<std::vector<std::string>> runs;
    Facts facts = Facts::real();
    facts.home = [&](std::string_view component) { return d / "home/" + std::string(component); };
    facts.run = [&](const std::string& tool, const std::vector<std::string>& args, double, bool, ToolErrors) {
        runs.push_back(args);
        runs.back().insert(runs.back().begin(), tool);
        return ToolResult{};
    };
    setPersistentGUIEnv("EDITOR", "vim -u <x>", facts);
    setPersistentGUIEnv("../../evil", "x", facts);  // not a name: nothing happens
    const std::string agent = d / "home/Library/LaunchAgents/local.orvane.env.EDITOR.plist";
    const auto written = parsePropertyList(readFile(agent).value_or(""));
    ASSERT_TRUE(written);
    EXPECT_EQ(*written, (nlohmann::json{{"Label", "local.orvane.env.EDITOR"},
                                        {"ProgramArguments", {"/bin/launchctl", "setenv", "EDITOR", "vim -u <x>"}},
                                        {"RunAtLoad", true}}));
    clearPersistentGUIEnv("EDITOR", facts);
    EXPECT_FALSE(fs::exists(agent));
    EXPECT_EQ(runs, (std::vector<std::vector<std::string>>{{"/bin/launchctl", "setenv", "EDITOR", "vim -u <x>"},
                                                          {"/bin/launchctl", "unsetenv", "EDITOR"}}));
    Ledger::flush();
    const auto log = readFile(d / "ledger/actions.log").value_or("");
    EXPECT_NE(log.find("ENV EDITOR=vim -u <x> (launchctl + LaunchAgent)"), std::string::npos) << log;
    EXPECT_NE(log.find("ENV EDITOR cleared (launchctl + LaunchAgent removed)"), std::string::npos) << log;
    Ledger::setTestDirOverride(std::nullopt);
}

}  // namespace
}  // namespace orvane
