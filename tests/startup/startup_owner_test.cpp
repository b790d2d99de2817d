#include "core/startup/startup_owner.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <set>

#include "core/common/json_files.hpp"
#include "core/common/property_list.hpp"
#include "tests/startup/printers.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {

namespace {

using namespace startup_owner;

TEST(EnclosingAppBundle, OutermostBundleInItsOwnCase) {
    struct Case {
        const char* path;
        std::optional<std::string> bundle;
    };
    const Case cases[] = {
        {"/Applications/Foo.app/Contents/Library/LoginItems/Bar.app/Contents/MacOS/bar", "/Applications/Foo.app"},
        {"/Applications/foo.APP/Contents/MacOS/x", "/Applications/foo.APP"},
        {"Applications/Foo.app/Contents/MacOS/x", std::nullopt},
        {"/usr/local/bin/app", std::nullopt},
        {"/Applications/Foo.apps/x", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(enclosingAppBundle(c.path), c.bundle) << c.path;
}

TEST(StartupOwner, FirstDecidingStepWins) {
    const AppRef trashed{"/Users/a/.Trash/Foo.app", "Foo", "com.foo.app"};
    const AppRef foo{"/Applications/Foo.app", "Foo", "com.foo.app"};
    const AppRef vendor{"/Applications/Vendor.app", "Vendor", "com.vendor.app"};
    const AppRef vendorPro{"/Applications/Vendor Pro.app", "Vendor Pro", "com.vendor.app.pro"};
    const AppRef tieA{"/Applications/TieA.app", "TieA", "COM.TIE.X"};
    const AppRef tieB{"/Applications/TieB.app", "TieB", "com.tie.x"};
    const AppRef nameless{"/Applications/Nameless.app", "Nameless", ""};
    const std::vector<AppRef> installed = {nameless, trashed, foo, vendor, vendorPro, tieA, tieB};
    const std::set<std::string> disk = {"/Users/a/.Trash/Foo.app", "/Applications/Foo.app", "/Users/a/Apps/Loose.app",
                                        "/usr/local/bin/present"};
    auto exists = [&](const std::string& path) { return disk.contains(path); };

    struct Case {
        const char* name;
        std::optional<std::string> program;
        std::vector<std::string> associated;
        const char* label;
        std::optional<std::string> registeredBy;
        std::optional<std::string> home;
        StartupOwner owner;
    };
    const std::optional<std::string> none;
    const std::optional<std::string> home = "/Users/a";
    const Case cases[] = {
        {"trashed, though installed and matching", "/Users/a/.Trash/Foo.app/Contents/MacOS/foo", {"com.foo.app"},
         "com.foo.app", none, home, {AppInTrash{"/Users/a/.Trash/Foo.app"}}},
        {"no home: no Trash test", "/Users/a/.Trash/Foo.app/Contents/MacOS/foo", {}, "x.y", none, none,
         {App{trashed, OwnerEvidence::programInside}}},
        {"path compared without case", "/Applications/foo.APP/Contents/MacOS/x", {}, "x.y", none, home,
         {App{foo, OwnerEvidence::programInside}}},
        {"present but not installed", "/Users/a/Apps/Loose.app/Contents/MacOS/l", {}, "x.y", none, home,
         {App{AppRef{"/Users/a/Apps/Loose.app", "Loose", ""}, OwnerEvidence::programInside}}},
        {"gone bundle is final", "/Applications/Gone.app/Contents/MacOS/g", {}, "com.foo.app", "com.foo.app", home,
         {AppGone{"/Applications/Gone.app"}}},
        {"registeredBy in another case", none, {}, "x.y", "COM.VENDOR.APP", home,
         {App{vendor, OwnerEvidence::associatedBundle}}},
        {"declared before the label", none, {"COM.VENDOR.APP"}, "com.vendor.app.pro.helper", none, home,
         {App{vendor, OwnerEvidence::associatedBundle}}},
        {"empty registeredBy is absent", none, {}, "x.y", "", home, {Unknown{}}},
        {"longest family member", none, {}, "com.vendor.app.pro.helper", none, home,
         {App{vendorPro, OwnerEvidence::labelFamily}}},
        {"label equal to an identifier", none, {}, "Com.Vendor.App", none, home,
         {App{vendor, OwnerEvidence::labelFamily}}},
        {"prefix without a dot", none, {}, "com.vendor.apple", none, home, {Unknown{}}},
        {"no identifier, no family", none, {}, ".hidden", none, home, {Unknown{}}},
        {"equal lengths: first installed", none, {}, "com.tie.x.agent", none, home,
         {App{tieA, OwnerEvidence::labelFamily}}},
        {"missing program speaks first", "/opt/gone/bin/tool", {}, "x.y", "com.gone.app", home,
         {ProgramMissing{"/opt/gone/bin/tool"}}},
        {"registered app missing, original case", "/usr/local/bin/present", {}, "x.y", "Com.Gone.App", home,
         {RegisteredAppMissing{"Com.Gone.App"}}},
        {"relative program is never missing", "tool", {}, "x.y", none, home, {Unknown{}}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(startupOwner(c.program, c.associated, c.label, installed, exists, c.home, c.registeredBy), c.owner)
            << c.name;
}

TEST(StartupOwner, JSONForm) {
    const AppRef foo{"/Applications/Foo.app", "Foo", "com.foo.app"};
    const std::pair<StartupOwner, const char*> cases[] = {
        {{App{foo, OwnerEvidence::labelFamily}},
         R"({"app":{"_0":{"path":"/Applications/Foo.app","name":"Foo","bundleID":"com.foo.app"},)"
         R"("how":"labelFamily"}})"},
        {{AppGone{"/A.app"}}, R"({"appGone":{"appPath":"/A.app"}})"},
        {{AppInTrash{"/T.app"}}, R"({"appInTrash":{"appPath":"/T.app"}})"},
        {{RegisteredAppMissing{"com.x.y"}}, R"({"registeredAppMissing":{"bundleID":"com.x.y"}})"},
        {{ProgramMissing{"/x"}}, R"({"programMissing":{"_0":"/x"}})"},
        {{Unknown{}}, R"({"unknown":{}})"},
    };
    for (const auto& [owner, json] : cases) EXPECT_EQ(toJSON(owner).dump(), json);
    EXPECT_EQ(describe({App{foo, OwnerEvidence::labelFamily}}), "Foo");
}

TEST(LaunchdProgram, OrderAndEmpties) {
    struct Case {
        const char* plist;
        std::optional<std::string> program;
    };
    const Case cases[] = {
        {R"({"BundleProgram":"/b","Program":"/p","ProgramArguments":["/a"]})", "/b"},
        {R"({"BundleProgram":"","Program":"/p"})", "/p"},
        {R"({"Program":5,"ProgramArguments":["/a","--x"]})", "/a"},
        {R"({"Program":"","ProgramArguments":[""]})", std::nullopt},
        {R"({"ProgramArguments":["/a",3]})", std::nullopt},
        {R"({"ProgramArguments":"/a"})", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(launchdProgram(nlohmann::json::parse(c.plist)), c.program) << c.plist;
}

TEST(EmbeddedBackgroundItems, ReadsTheBundlesHelpers) {
    testing::TempDir dir;
    const std::string bundle = dir.mkdir("Vendor.app");
    auto plist = [](const nlohmann::json& value) { return propertyListData(value, PropertyListFormat::xml).value(); };
    const std::string library = "Vendor.app/Contents/Library/";
    const std::string helper = dir.mkdir(library + "LoginItems/Helper.app");
    dir.write(library + "LoginItems/Helper.app/Contents/Info.plist",
              plist({{"CFBundleIdentifier", "com.vendor.helper"}, {"CFBundleExecutable", "Helper"}}));
    dir.write(library + "LoginItems/Bad.app/Contents/Info.plist", plist({{"CFBundleIdentifier", "bad id"}}));
    dir.write(library + "LoginItems/Loose.plist", plist({{"CFBundleIdentifier", "com.vendor.loose"}}));
    const std::string binary = dir.write(
        library + "LaunchAgents/a.plist",
        readFile(std::string(TEST_DATA_DIR) + "/plist/launch-agent-binary.plist").value_or(""));
    const std::string agent =
        dir.write(library + "LaunchAgents/b.plist", plist({{"Label", "com.vendor.shared"}, {"Program", "/x"}}));
    dir.write(library + "LaunchAgents/c.plist", plist({{"Label", "com.vendor.shared"}, {"Program", "/dup"}}));
    dir.write(library + "LaunchAgents/d.plist", "not a property list");
    dir.write(library + "LaunchAgents/e.txt", plist({{"Label", "com.vendor.text"}}));
    const std::string daemon = dir.write(library + "LaunchDaemons/a.plist", plist({{"Label", "com.vendor.shared"}}));
    dir.write(library + "LaunchDaemons/b.plist", plist({{"Label", "com.vendor bad"}}));
    dir.write(library + "LaunchDaemons/c.plist", plist({{"Label", 7}}));
    const std::string only =
        dir.write(library + "LaunchDaemons/d.plist", plist({{"Label", "com.vendor.daemon"}, {"Program", "/d"}}));

    using Kind = EmbeddedBackgroundItem::Kind;
    const std::vector<EmbeddedBackgroundItem> expected = {
        {Kind::loginItem, "com.vendor.helper", helper, "Helper"},
        {Kind::agent, "com.vendor.binaryagent", binary, "/Applications/Vendor.app/Contents/MacOS/agent"},
        {Kind::agent, "com.vendor.shared", agent, "/x"},
        {Kind::daemon, "com.vendor.daemon", only, "/d"},
        {Kind::daemon, "com.vendor.shared", daemon, std::nullopt},
    };
    const Facts& facts = Facts::real();
    EXPECT_EQ(embeddedBackgroundItems(bundle, facts), expected);
    EXPECT_EQ(embeddedHelperLabels(bundle, facts),
              (std::vector<std::string>{"com.vendor.binaryagent", "com.vendor.helper", "com.vendor.shared"}));
    EXPECT_TRUE(embeddedBackgroundItems(dir.mkdir("Empty.app"), facts).empty());
}

}  // namespace
}  // namespace orvane
