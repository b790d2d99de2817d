// The startup scans' costs on a Mac with far more registered items than most have: the
// background-task dump, and the startup page over 1,000 launch plists against a bare listing and
// libplist parse of the same folder.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include <string>
#include <unordered_set>
#include <vector>

#include "core/common/tool_runner.hpp"
#include "core/common/property_list.hpp"
#include "core/startup/btm_audit.hpp"
#include "core/startup/startup_items.hpp"

namespace {

using namespace orvane;

// A background-task dump in sfltool's own layout: per vendor a developer row, an app (a file
// URL, some with an escaped space) and its daemon with places relative to the app, a legacy
// agent of this user or another, and a legacy daemon with its executable.
struct SyntheticDump {
    std::vector<std::string> lines;
    std::unordered_set<std::string> present;
    long records = 0;
};

SyntheticDump makeDump(long recordCount) {
    SyntheticDump dump;
    std::string text =
        "========================\nRecords for UID 501 : 0E9B2A4C-7F1D-4C3B-9A55-2D6E8F104B7A\n"
        "========================\n\nServiceManagement migrated: true\nLaunchServices registered: true\n\nItems:\n\n";
    const auto record = [&](const std::string& body) {
        ++dump.records;
        text += " #" + std::to_string(dump.records) + ":\n" +
                "                 UUID: 4AC3BA7E-5573-4830-801E-AEF6601508" + std::to_string(dump.records % 100) + "\n" + body +
                "           Generation: 2\n\n";
    };
    for (long vendor = 0; dump.records < recordCount; ++vendor) {
        const std::string v = std::to_string(vendor);
        const std::string bundle = "com.vendor" + v + ".app";
        const std::string app = vendor % 3 == 0 ? "Vendor%20" + v + ".app" : "Vendor" + v + ".app";
        const std::string appPath = vendor % 3 == 0 ? "/Applications/Vendor " + v + ".app" : "/Applications/Vendor" + v + ".app";
        if (vendor % 2 == 0) dump.present.insert(appPath);
        record("                 Name: (null)\n       Developer Name: (null)\n                 Type: developer (0x20)\n"
               "          Disposition: [enabled, allowed, notified] (0xb)\n           Identifier: Vendor " + v + " Inc.\n"
               "                  URL: (null)\n  Embedded Item Identifiers:\n    #1: 16." + bundle + ".agent\n");
        record("                 Name: Vendor " + v + "\n       Developer Name: Vendor " + v + " Inc.\n"
               "      Team Identifier: 8SY98BT8RV\n                 Type: app (0x2)\n                Flags: [  ] (0)\n"
               "          Disposition: [enabled, allowed, notified] (0xb)\n           Identifier: 2." + bundle + "\n"
               "                  URL: file:///Applications/" + app + "/\n    Bundle Identifier: " + bundle + "\n"
               "  Embedded Item Identifiers:\n    #1: 16." + bundle + ".helper\n");
        record("                 Name: vendor" + v + "-helper\n       Developer Name: (null)\n                 Type: daemon (0x10)\n"
               "          Disposition: [disabled, allowed, not notified] (0x2)\n           Identifier: 16." + bundle + ".helper\n"
               "                  URL: Contents/Library/LaunchDaemons/" + bundle + ".helper.plist\n"
               "      Executable Path: Contents/MacOS/vendor" + v + "-helper\n    Parent Identifier: 2." + bundle + "\n");
        const std::string agent = "/Library/LaunchAgents/" + bundle + ".agent.plist";
        const std::string owner = vendor % 5 == 0 ? "502" : "501";
        if (vendor % 4 == 0) dump.present.insert("/Users/amy" + agent);
        record("                 Name: " + bundle + ".agent\n       Developer Name: Vendor " + v + " Inc.\n"
               "                 Type: legacy agent (0x10008)\n                Flags: [ legacy ] (0x1)\n"
               "          Disposition: [enabled, allowed, notified] (0xb)\n           Identifier: 8." + bundle + ".agent\n"
               "                  URL: file:///Users/" + owner + agent + "\n    Parent Identifier: Vendor " + v + " Inc.\n");
        const std::string daemon = "/Library/LaunchDaemons/" + bundle + ".daemon.plist";
        if (vendor % 3 == 1) dump.present.insert(daemon);
        record("                 Name: " + bundle + ".daemon\n       Developer Name: (null)\n"
               "                 Type: legacy daemon (0x10010)\n          Disposition: [enabled, allowed, notified] (0xb)\n"
               "           Identifier: 16." + bundle + ".daemon\n                  URL: file://" + daemon + "\n"
               "      Executable Path: /Library/Application Support/Vendor" + v + "/daemon\n"
               "    Parent Identifier: Vendor " + v + " Inc.\n");
    }
    dump.lines = splitToolOutput(text, false);
    return dump;
}

void BM_AssessBTMDump(benchmark::State& state) {
    static const SyntheticDump dump = makeDump(10'000);
    const auto exists = [&](const std::string& path) { return dump.present.contains(path); };
    BTMAssessment assessment;
    for (auto _ : state) {
        const auto records = parseBTMDump(dump.lines);
        assessment = assessBTMDump(records, 501, "/Users/amy", exists);
        benchmark::DoNotOptimize(assessment);
    }
    state.SetItemsProcessed(state.iterations() * dump.records);
    // What the dump made the audit do, so that a change of the dump shows beside the figure.
    state.counters["ghosts"] = static_cast<double>(assessment.ghosts.size());
    state.counters["unjudged"] = assessment.unjudged;
}
BENCHMARK(BM_AssessBTMDump)->Unit(benchmark::kMillisecond);

}  // namespace

// ---- The startup page over a folder of launch plists ----

namespace {

// A home whose ~/Library/LaunchAgents holds 1,000 third-party plists, every other one binary;
// removed when the program ends.
struct LaunchAgentsHome {
    std::string dir;
    LaunchAgentsHome() {
        std::string pattern = "/var/tmp/orvane-startup-bench-XXXXXX";
        dir = ::mkdtemp(pattern.data());
        const std::string agents = dir + "/Library/LaunchAgents";
        std::filesystem::create_directories(agents);
        for (int i = 0; i < 1000; ++i) {
            const std::string label = "com.vendor" + std::to_string(i % 37) + ".agent" + std::to_string(i);
            const nlohmann::json plist = {
                {"Label", label},
                {"ProgramArguments", {"/Applications/App" + std::to_string(i % 37) + ".app/Contents/MacOS/agent", "-x"}},
                {"RunAtLoad", true},
                {"StartInterval", 3600},
            };
            const auto format = i % 2 ? orvane::PropertyListFormat::binary : orvane::PropertyListFormat::xml;
            std::ofstream(agents + "/" + label + ".plist", std::ios::binary) << *orvane::propertyListData(plist, format);
        }
    }
    ~LaunchAgentsHome() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const std::string& launchAgentsHome() {
    static const LaunchAgentsHome home;
    return home.dir;
}

// The floor: list the folder and parse every plist with libplist, nothing else.
void BM_ListAndParsePlists(benchmark::State& state) {
    const std::string agents = launchAgentsHome() + "/Library/LaunchAgents";
    for (auto _ : state) {
        std::size_t parsed = 0;
        for (const auto& entry : std::filesystem::directory_iterator(agents)) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            plist_t root = nullptr;
            plist_from_memory(bytes.c_str(), static_cast<std::uint32_t>(bytes.size()), &root);
            if (root) ++parsed;
            plist_free(root);
        }
        benchmark::DoNotOptimize(parsed);
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_ListAndParsePlists)->Unit(benchmark::kMillisecond);

void BM_ScanStartupItems(benchmark::State& state) {
    const std::string home = launchAgentsHome();
    const std::vector<orvane::AppRef> apps = {{"/Applications/App3.app", "App3", "com.vendor3.app"}};
    for (auto _ : state) {
        auto items = orvane::scanStartupItems(apps, home);
        if (items.size() != 1000) state.SkipWithError("the page lost items");
        benchmark::DoNotOptimize(items);
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_ScanStartupItems)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
