// The leftovers pass on a Mac with far more Library names than most have: 2,000 reverse-DNS
// entries judged against 300 installed apps, beside a bare listing of the same folders; and the
// files one installer package alone accounts for in a receipt of 20,000 paths.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/apps/installer_receipts.hpp"
#include "core/apps/leftovers.hpp"
#include "core/common/folder_entries.hpp"

namespace {

using namespace orvane;

constexpr int kEntries = 2000;
constexpr int kApps = 300;

// A home whose Library folders hold 2,000 names of 600 vendors' apps, half of them installed;
// removed when the program ends.
struct LibraryHome {
    std::string dir;
    LibraryHome() {
        std::string pattern = "/var/tmp/orvane-leftovers-bench-XXXXXX";
        dir = ::mkdtemp(pattern.data());
        for (int i = 0; i < kEntries; ++i) {
            const std::string folder = dir + "/" + std::string(orphanUserDirs[i % orphanUserDirs.size()]);
            std::filesystem::create_directories(folder);
            const std::string id = "com.vendor" + std::to_string(i % (2 * kApps)) + ".app" + std::to_string(i);
            if (i % 2) std::filesystem::create_directory(folder + "/" + id);
            else std::ofstream(folder + "/" + id + ".plist") << "x";
        }
    }
    ~LibraryHome() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const std::string& libraryHome() {
    static const LibraryHome home;
    return home.dir;
}

LeftoverOwners installedOwners() {
    LeftoverOwners owners;
    for (int i = 0; i < kApps; ++i) {
        owners.bundleIDs.insert("com.vendor" + std::to_string(i) + ".app" + std::to_string(i));
        owners.names.insert("app " + std::to_string(i));
    }
    return owners;
}

// The floor: list every folder the pass looks at and sort the names, nothing else.
void BM_ListLibraryFolders(benchmark::State& state) {
    const std::string home = libraryHome();
    std::vector<std::string> folders;
    for (const auto relative : orphanUserDirs) folders.push_back(home + "/" + std::string(relative));
    for (const auto folder : orphanSystemDirs) folders.emplace_back(folder);
    folders.emplace_back("/Applications");
    for (auto _ : state) {
        std::size_t names = 0;
        for (const auto& folder : folders) {
            auto entries = listFolder(folder).value_or(std::vector<FolderEntry>{});
            std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
            names += entries.size();
        }
        benchmark::DoNotOptimize(names);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_ListLibraryFolders)->Unit(benchmark::kMillisecond);

void BM_LeftoverRows(benchmark::State& state) {
    const std::string home = libraryHome();
    const LeftoverOwners owners = installedOwners();
    std::size_t offered = 0;
    for (auto _ : state) {
        offered = leftoverRows(home, owners, Facts::real()).size();
        benchmark::DoNotOptimize(offered);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
    state.counters["offered"] = static_cast<double>(offered);
}
BENCHMARK(BM_LeftoverRows)->Unit(benchmark::kMillisecond);

// A package of 20,000 files in 200 folders of its own under /Library/Vendor, judged against an
// in-memory disk that holds exactly them.
void BM_ReceiptLeftovers(benchmark::State& state) {
    std::vector<std::string> paths;
    std::set<std::string> files, folders = {"/Library", "/Library/Vendor"};
    std::map<std::string, std::vector<std::string>> children;
    children["/Library/Vendor"] = {};
    for (int f = 0; f < 200; ++f) {
        const std::string folder = "/Library/Vendor/Part" + std::to_string(f);
        folders.insert(folder);
        paths.push_back(folder);
        children["/Library/Vendor"].push_back("Part" + std::to_string(f));
        for (int i = 0; i < 99; ++i) {
            const std::string name = "file" + std::to_string(i);
            files.insert(folder + "/" + name);
            paths.push_back(folder + "/" + name);
            children[folder].push_back(name);
        }
    }
    const auto exists = [&](const std::string& p) { return files.contains(p) || folders.contains(p); };
    const auto isDirectory = [&](const std::string& p) { return folders.contains(p); };
    const auto list = [&](const std::string& p) -> std::optional<std::vector<std::string>> {
        const auto found = children.find(p);
        if (found == children.end()) return std::nullopt;
        return found->second;
    };
    std::size_t kept = 0;
    for (auto _ : state) {
        kept = receiptLeftovers(paths, "/Applications/Vendor.app", "/Users/amy", exists, isDirectory, list,
                                installerLeftoverRowLimit)
                   .size();
        benchmark::DoNotOptimize(kept);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
    state.counters["rows"] = static_cast<double>(kept);
}
BENCHMARK(BM_ReceiptLeftovers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
