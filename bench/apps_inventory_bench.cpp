// The app list's cost per app on a Mac with 300 apps: finding the bundles, reading each
// Info.plist, the executable's architectures and the offline authenticity report, against a floor
// in the same run that only finds the bundles and parses their Info.plist with libplist. The
// signing facts are a recorded codesign answer: the tool's own time is the Mac's, not ours.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/app_copies.hpp"
#include "core/authenticity/genuine_check.hpp"
#include "core/common/property_list.hpp"

namespace {

using namespace orvane;

constexpr int kApps = 300;

// A home with 300 bundles in ~/Applications, a third of them in vendors' folders, every other
// Info.plist binary, each executable starting with a universal header; removed at the end.
struct AppsHome {
    std::string dir;
    AppsHome() {
        std::string pattern = "/var/tmp/orvane-apps-bench-XXXXXX";
        dir = ::mkdtemp(pattern.data());
        const std::string header("\xCA\xFE\xBA\xBE\x00\x00\x00\x02\x01\x00\x00\x07\x00\x00\x00\x03\x00\x00\x40\x00"
                                 "\x00\x00\x00\x64\x00\x00\x00\x0E\x01\x00\x00\x0C\x00\x00\x00\x00\x00\x00\x80\x00"
                                 "\x00\x00\x00\x64\x00\x00\x00\x0E",
                                 48);
        for (int i = 0; i < kApps; ++i) {
            const std::string name = "App" + std::to_string(i);
            const std::string bundle = dir + "/Applications/" + (i % 3 == 0 ? "Vendor" + std::to_string(i % 7) + "/" : "") +
                                       name + ".app";
            std::filesystem::create_directories(bundle + "/Contents/MacOS");
            const nlohmann::json info = {{"CFBundleIdentifier", "com.vendor" + std::to_string(i % 7) + "." + name},
                                         {"CFBundleExecutable", name},
                                         {"CFBundleShortVersionString", "1." + std::to_string(i)},
                                         {"LSApplicationCategoryType", "public.app-category.productivity"}};
            std::ofstream(bundle + "/Contents/Info.plist", std::ios::binary)
                << *propertyListData(info, i % 2 ? PropertyListFormat::binary : PropertyListFormat::xml);
            std::ofstream(bundle + "/Contents/MacOS/" + name, std::ios::binary) << header << std::string(8192, '\0');
        }
    }
    ~AppsHome() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const std::string& appsHome() {
    static const AppsHome home;
    return home.dir;
}

// The floor: find the bundles and parse each Info.plist with libplist, nothing else.
void BM_FindAndParseInfoPlists(benchmark::State& state) {
    const std::string root = appsHome() + "/Applications";
    for (auto _ : state) {
        std::size_t parsed = 0;
        for (auto it = std::filesystem::recursive_directory_iterator(root); it != std::filesystem::recursive_directory_iterator(); ++it) {
            if (it->path().extension() != ".app") continue;
            it.disable_recursion_pending();
            std::ifstream in(it->path() / "Contents/Info.plist", std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            plist_t plist = nullptr;
            plist_from_memory(bytes.c_str(), static_cast<std::uint32_t>(bytes.size()), &plist);
            if (plist) ++parsed;
            plist_free(plist);
        }
        benchmark::DoNotOptimize(parsed);
    }
    state.SetItemsProcessed(state.iterations() * kApps);
}
BENCHMARK(BM_FindAndParseInfoPlists)->Unit(benchmark::kMillisecond);

void BM_AppInventoryWithReports(benchmark::State& state) {
    const std::string home = appsHome();
    Facts facts = Facts::real();
    const std::vector<std::string> display = {
        "Identifier=com.vendor1.App1", "Format=app bundle with Mach-O universal (x86_64 arm64)",
        "Authority=Developer ID Application: Vendor One (ABCDE12345)", "Authority=Developer ID Certification Authority",
        "Authority=Apple Root CA", "Notarization Ticket=stapled", "TeamIdentifier=ABCDE12345"};
    facts.run = [&](const std::string&, const std::vector<std::string>& args, double, bool, ToolErrors) {
        ToolResult result;
        result.status = 0;
        if (args.front() == "--display") result.lines = display;
        return result;
    };
    std::size_t gold = 0;
    for (auto _ : state) {
        gold = 0;
        const auto found = appBundleInventory(home + "/Applications", 4, 4000, facts);
        for (const auto& path : found.paths) {
            const auto info = readPropertyListDictionary(path + "/Contents/Info.plist", facts);
            if (!info) continue;
            const std::string id = plistString(*info, "CFBundleIdentifier").value_or("");
            benchmark::DoNotOptimize(macos27Verdict(appArchitectures(path, *info, facts)));
            const auto report = GenuineCheck::offline(path, "App", id, home, facts);
            if (report.tier()) ++gold;
        }
        benchmark::DoNotOptimize(gold);
    }
    state.SetItemsProcessed(state.iterations() * kApps);
    state.counters["judged"] = static_cast<double>(gold);
}
BENCHMARK(BM_AppInventoryWithReports)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
