#include "core/startup/launchd_inventory.hpp"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <set>

#include "core/common/json_files.hpp"
#include "tests/startup/printers.hpp"

namespace orvane {

namespace {

std::string captured(const std::string& name) {
    return readFile(std::string(TEST_DATA_DIR) + "/launchctl/" + name).value_or("");
}

using Rows = std::vector<LaunchdServiceRow>;

TEST(ParseLaunchctlServiceList, RealDomainsGiveTheirServicesBlockOnly) {
    struct Case {
        const char* file;
        Rows rows;
    };
    const Case cases[] = {
        // Tabs before the label; "[…]" cut marks and the endpoints block after it add nothing.
        {"print-gui501-domain-pufferfish.txt",
         {{887, "net.jwpconsulting.postgresql"}, {866, "com.apple.syncdefaultsd"}}},
        {"print-system-domain-pufferfish.txt",
         {{std::nullopt, "com.apple.rpmuxd"},
          {std::nullopt, "com.apple.lskdd"},
          {876, "com.apple.kernelmanager_helper"},
          {539, "com.apple.runningboardd"}}},
        {"print-system-domain-slaunchctl.txt",
         {{std::nullopt, "com.apple.lskdd"}, {184, "com.apple.runningboardd"}, {std::nullopt, "com.apple.relatived"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(parseLaunchctlServiceList(captured(c.file)), c.rows) << c.file;
}

TEST(ParseLaunchctlServiceList, Rows) {
    struct Case {
        const char* text;
        Rows rows;
    };
    const Case cases[] = {
        {"services = { x\n\t0 - com.example.a\n}", {}},
        {"services = {\n"
         "    PID    STATUS LABEL\n"
         "    0      -      com.example.a\n"
         "    812    0      com.example.a\n"
         "    812    0      com.example app\n"
         "    -5     0      com.example.neg\n"
         "    +7     0      com.example.plus\n"
         "    +-7    0      com.example.odd\n"
         "    9999999999 0  com.example.huge\n"
         "    3      0      com.example.bad/label\n"
         "}\n"
         "services = {\n"
         "    9      0      com.example.later\n"
         "}",
         {{std::nullopt, "com.example.a"},
          {812, "com.example.a"},
          {std::nullopt, "com.example.neg"},
          {7, "com.example.plus"},
          {std::nullopt, "com.example.odd"},
          {std::nullopt, "com.example.huge"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(parseLaunchctlServiceList(c.text), c.rows) << c.text;
}

// A job as its JSON form, which leaves out what is none: the whole job is compared, so a nested
// block's keys that leaked into it would show.
std::string jobFrom(std::string_view text, const std::string& label = "com.x.y") {
    return toJSON(parseLaunchctlPrint(text, label)).dump();
}

TEST(ParseLaunchctlPrint, RealJobs) {
    struct Case {
        const char* file;
        const char* label;
        const char* job;
    };
    const Case cases[] = {
        // An SMAppService login item: "(submitted by …)" stands where a plist's path would be.
        {"print-service-gui501-submitted-loginitem-slaunchctl.txt", "com.vendor.helper",
         R"({"label":"com.vendor.helper","type":"Submitted","running":false,"parentBundleID":"com.vendor.vendor"})"},
        // The old format: no type; "stdout path" and the arguments block are not the path.
        {"print-service-gui501-vscode-shipit-2019.txt", "com.microsoft.VSCodeInsiders.ShipIt",
         R"({"label":"com.microsoft.VSCodeInsiders.ShipIt","running":true,"pid":3087,"program":"/Users/user1/)"
         R"(Applications/Visual Studio Code - Insiders.app/Contents/Frameworks/Squirrel.framework/Resources/ShipIt"})"},
        {"print-service-system-akd-slaunchctl.txt", "com.apple.akd",
         R"({"label":"com.apple.akd","path":"/System/Library/LaunchDaemons/com.apple.akd.plist","type":"LaunchDaemon",)"
         R"("running":true,"pid":928,"program":"/System/Library/PrivateFrameworks/AuthKit.framework/Versions/A/)"
         R"(Support/akd"})"},
        {"print-service-system-devmysql-yosemite.txt", "dev.mysql",
         R"({"label":"dev.mysql","path":"/Library/LaunchDaemons/dev.mysql.plist","running":true,"pid":24784,)"
         R"("program":"/opt/boxen/homebrew/bin/mysqld_safe"})"},
        {"print-service-user501-iCloudHelper-ventura.txt", "com.apple.iCloudHelper",
         R"({"label":"com.apple.iCloudHelper","path":"/System/Library/PrivateFrameworks/AOSKit.framework/Versions/)"
         R"(A/XPCServices/com.apple.iCloudHelper.xpc","type":"XPCService","running":false,"program":"/System/Library/)"
         R"(PrivateFrameworks/AOSKit.framework/Versions/A/XPCServices/com.apple.iCloudHelper.xpc/Contents/MacOS/)"
         R"(com.apple.iCloudHelper"})"},
    };
    for (const auto& c : cases) EXPECT_EQ(jobFrom(captured(c.file), c.label), c.job) << c.file;
    EXPECT_TRUE(parseLaunchctlPrint(captured(cases[0].file), cases[0].label).registeredByApp());
    EXPECT_FALSE(parseLaunchctlPrint(captured(cases[1].file), cases[1].label).registeredByApp());
}

TEST(ParseLaunchctlPrint, DepthOverridesAndTeam) {
    struct Case {
        const char* text;
        const char* job;
    };
    const Case cases[] = {
        {"", R"({"label":"com.x.y","running":false})"},
        // A stray brace before the block must not shift the levels after it.
        {"}\ncom.x.y = {\n\tpid = 5\n}", R"({"label":"com.x.y","running":false,"pid":5})"},
        {"com.x.y = {\n\tpath = /a\n\tpath = relative/file\n\tpid = 5\n\tpid = -\n}",
         R"({"label":"com.x.y","running":false})"},
        {"com.x.y = {\n\tpath = relative/file\n\tpath = /x\n}", R"({"label":"com.x.y","path":"/x","running":false})"},
        {"com.x.y = {\n\tendpoints = {\n\t\tstate = running\n\t\tprogram = /nested\n\t\tpid = 9\n\t}\n}",
         R"({"label":"com.x.y","running":false})"},
        {"com.x.y = {\n\tmanaged_by = M\n\tcode signing info = {\n"
         "\t\t\"team-identifier\" => \"ABCDE12345\"\n\t\t\"team-identifier\" => \"ABCDE1234\"\n\t}\n}",
         R"({"label":"com.x.y","managedBy":"M","running":false,"teamID":"ABCDE12345"})"},
    };
    for (const auto& c : cases) EXPECT_EQ(jobFrom(c.text), c.job) << c.text;
    // Compared exactly: another case is not the system's manager.
    EXPECT_TRUE(parseLaunchctlPrint("a = {\n\tmanaged_by = com.apple.xpc.ServiceManagement\n}", "a.b")
                    .registeredByApp());
    EXPECT_FALSE(parseLaunchctlPrint("a = {\n\tmanaged_by = com.apple.xpc.servicemanagement\n}", "a.b")
                     .registeredByApp());
}

TEST(LaunchdLabels, Predicates) {
    const std::string dotted255 = "a." + std::string(253, 'b');
    std::string accented255;
    for (int i = 0; i < 255; ++i) accented255 += "é";
    struct Case {
        std::string label;
        bool strict;
        bool plausible;
    };
    const Case cases[] = {
        {dotted255, true, true},
        {dotted255 + "c", false, false},
        {accented255, false, true},  // counted in characters, not bytes
        {accented255 + "é", false, false},
        {"", false, false},
        {"a.b.", false, true},
        {".a.b", false, false},
        {"-a.b", true, false},
        {"nodot", false, true},
        {"é.b", false, true},
        {"e\u0301.b", false, true},  // a combining mark is one of the alphanumerics
        {"😀.x", false, false},
        {"com.x y", false, false},
        {"com.x.y\n", false, false},
        {"Com.X-Y_z.9", true, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isLaunchdLabel(c.label), c.strict) << c.label;
        EXPECT_EQ(isPlausibleLaunchdLabel(c.label), c.plausible) << c.label;
    }

    EXPECT_TRUE(isTeamID("A1B2C3D4E5"));
    for (const char* bad : {"a1b2c3d4e5", "A1B2C3D4E", "A1B2C3D4E56", "A1B2C3D4-5", ""})
        EXPECT_FALSE(isTeamID(bad)) << bad;

    EXPECT_FALSE(isThirdPartyLabel("COM.APPLE.foo", {}));
    EXPECT_FALSE(isThirdPartyLabel("application.com.vendor.app.123.456", {}));
    EXPECT_TRUE(isThirdPartyLabel("com.applefan.helper", {}));
    EXPECT_TRUE(isThirdPartyLabel("com.x.y", {"COM.X.Y"}));
    EXPECT_FALSE(isThirdPartyLabel("com.x.y", {"COM.X.Y", "com.x.y"}));
}

// launchctl as a recorded Mac answers it: a command with no answer behaves as an absent tool.
struct FakeLaunchd {
    std::map<std::string, std::string> answers;  // "print gui/501" → its stdout
    std::set<std::string> existing;
    std::map<std::int32_t, std::string> processes;
    mutable std::vector<std::string> runs;  // "print gui/501 15"

    Facts facts() const {
        Facts facts;
        facts.run = [this](const std::string& tool, const std::vector<std::string>& args, double timeout, bool,
                           ToolErrors) {
            std::string command;
            for (const auto& arg : args) command += (command.empty() ? "" : " ") + arg;
            runs.push_back(command + " " + std::to_string(static_cast<int>(timeout)));
            ToolResult result;
            auto answer = answers.find(command);
            if (tool != kLaunchctlTool || answer == answers.end()) return result;
            result.lines = splitToolOutput(answer->second, false);
            result.status = 0;
            return result;
        };
        facts.exists = [this](const std::string& path) { return existing.contains(path); };
        facts.processPath = [this](std::int32_t pid) -> std::optional<std::string> {
            auto found = processes.find(pid);
            if (found == processes.end()) return std::nullopt;
            return found->second;
        };
        return facts;
    }
};

TEST(RegisteredItems, KeepsRegisteredAndTrashedJobsTrashedFirst) {
    FakeLaunchd mac;
    mac.answers["print gui/501"] =
        "gui/501 = {\n\tservices = {\n"
        "\t\t       0      - \tcom.vendor.helper\n"
        "\t\t    3087      - \tcom.microsoft.VSCodeInsiders.ShipIt\n"
        "\t\t     887      - \tnet.jwpconsulting.postgresql\n"
        "\t\t     866      - \tcom.apple.syncdefaultsd\n"
        "\t\t       0      - \tcom.velloran.orvane.agent\n"
        "\t\t       0      - \tz.trash.agent\n"
        "\t\t       0      - \tquiet.job\n"
        "\t}\n}\n";
    mac.answers["print gui/501/com.vendor.helper"] =
        captured("print-service-gui501-submitted-loginitem-slaunchctl.txt");
    mac.answers["print gui/501/com.microsoft.VSCodeInsiders.ShipIt"] =
        captured("print-service-gui501-vscode-shipit-2019.txt");
    mac.answers["print gui/501/z.trash.agent"] =
        "gui/501/z.trash.agent = {\n\ttype = LaunchAgent\n\tprogram = /Users/a/.Trash/Foo.app/Contents/MacOS/foo\n}";
    mac.answers["print system"] = "system = {\n\tservices = {\n\t\t 410 - \tZed.vendor.daemon\n"
                                  "\t\t   0 - \tcom.vendor.helper\n\t}\n}";
    mac.answers["print system/Zed.vendor.daemon"] =
        "system/Zed.vendor.daemon = {\n\tmanaged_by = com.apple.xpc.ServiceManagement\n"
        "\tprogram = /Library/Vendor/zed\n}";
    mac.answers["print system/com.vendor.helper"] =
        "system/com.vendor.helper = {\n\tmanaged_by = com.apple.xpc.ServiceManagement\n"
        "\tprogram = /Applications/Vendor.app/Contents/Library/LoginItems/H.app/Contents/MacOS/h\n}";
    mac.existing = {"/Applications/Vendor.app"};
    // postgresql has no print of its own: its bare job is judged by the running process.
    mac.processes = {{887, "/Users/a/.Trash/Postgres.app/Contents/MacOS/postgres"}, {410, "/elsewhere"}};
    const AppRef vendor{"/Applications/Vendor.app", "Vendor", "com.vendor.vendor"};
    const Facts facts = mac.facts();

    const auto items =
        LaunchdInventory::registeredItems({vendor}, {"com.velloran.orvane.agent"}, "/Users/a", 501, true, facts);
    using namespace startup_owner;
    struct Expected {
        std::string id;
        StartupOwner owner;
        std::optional<std::string> program;
        std::optional<std::int32_t> pid;
    };
    const std::vector<Expected> expected = {
        {"gui/net.jwpconsulting.postgresql", {AppInTrash{"/Users/a/.Trash/Postgres.app"}},
         "/Users/a/.Trash/Postgres.app/Contents/MacOS/postgres", 887},
        {"gui/z.trash.agent", {AppInTrash{"/Users/a/.Trash/Foo.app"}}, "/Users/a/.Trash/Foo.app/Contents/MacOS/foo",
         std::nullopt},
        {"gui/com.vendor.helper", {App{vendor, OwnerEvidence::associatedBundle}}, std::nullopt, std::nullopt},
        {"system/com.vendor.helper", {App{vendor, OwnerEvidence::programInside}},
         "/Applications/Vendor.app/Contents/Library/LoginItems/H.app/Contents/MacOS/h", std::nullopt},
        {"system/Zed.vendor.daemon", {ProgramMissing{"/Library/Vendor/zed"}}, "/Library/Vendor/zed", 410},
    };
    ASSERT_EQ(items.size(), expected.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].id(), expected[i].id) << i;
        EXPECT_EQ(items[i].owner, expected[i].owner) << expected[i].id;
        EXPECT_EQ(items[i].program, expected[i].program) << expected[i].id;
        EXPECT_EQ(items[i].job.pid, expected[i].pid) << expected[i].id;
    }
    EXPECT_TRUE(items[0].isStale() && items[0].running() && items[0].stoppableAsUser());
    EXPECT_FALSE(items[4].isStale() || items[4].stoppableAsUser());

    // Apple's and our own labels cost no process.
    EXPECT_EQ(mac.runs, (std::vector<std::string>{
                            "print gui/501 15", "print gui/501/com.vendor.helper 5",
                            "print gui/501/com.microsoft.VSCodeInsiders.ShipIt 5",
                            "print gui/501/net.jwpconsulting.postgresql 5", "print gui/501/z.trash.agent 5",
                            "print gui/501/quiet.job 5", "print system 15", "print system/Zed.vendor.daemon 5",
                            "print system/com.vendor.helper 5"}));

    EXPECT_EQ(toJSON(items[2]).dump(),
              R"({"id":"gui/com.vendor.helper","domain":"gui","job":{"label":"com.vendor.helper","type":"Submitted",)"
              R"("running":false,"parentBundleID":"com.vendor.vendor"},"owner":{"app":{"_0":{"path":)"
              R"("/Applications/Vendor.app","name":"Vendor","bundleID":"com.vendor.vendor"},)"
              R"("how":"associatedBundle"}},)"
              R"("running":false,"isStale":false,"runsFromTrash":false,"stoppableAsUser":true})");

    mac.runs.clear();
    EXPECT_EQ(LaunchdInventory::registeredItems({vendor}, {}, "/Users/a", 501, false, facts).size(), 3u);
    EXPECT_EQ(std::count(mac.runs.begin(), mac.runs.end(), "print system 15"), 0);
    EXPECT_TRUE(LaunchdInventory::registeredItems({vendor}, {}, "/Users/a", 501, true, FakeLaunchd{}.facts()).empty());
}

TEST(LaunchdInventory, StopAndIsLoadedRunOnlyForGoodLabels) {
    FakeLaunchd mac;
    mac.answers["bootout gui/501/com.x.y"] = "";
    mac.answers["print system/com.x.y"] = "";
    const Facts facts = mac.facts();
    EXPECT_TRUE(LaunchdInventory::stop("com.x.y", 501, facts));
    EXPECT_FALSE(LaunchdInventory::stop("com.x.z", 501, facts));
    EXPECT_TRUE(LaunchdInventory::isLoaded("com.x.y", RegisteredBackgroundItem::Domain::system, 501, facts));
    EXPECT_FALSE(LaunchdInventory::isLoaded("com.x.y", RegisteredBackgroundItem::Domain::user, 501, facts));
    EXPECT_FALSE(LaunchdInventory::stop("com.x.y;reboot", 501, facts));
    EXPECT_FALSE(LaunchdInventory::isLoaded("-h", RegisteredBackgroundItem::Domain::system, 501, facts));
    EXPECT_EQ(mac.runs, (std::vector<std::string>{"bootout gui/501/com.x.y 10", "bootout gui/501/com.x.z 10",
                                                  "print system/com.x.y 5", "print gui/501/com.x.y 5"}));
}

}  // namespace
}  // namespace orvane
