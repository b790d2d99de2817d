// `orvane artifacts` over a tree of 200,000 files with 300 artifact folders, against a bare find
// that prunes the same folder names; and one delete verdict on a folder of 400 entries, which runs
// for every row of a list.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/safety/delete_verdict.hpp"
#include "core/common/tool_runner.hpp"

namespace {

namespace fs = std::filesystem;

const std::string kBase = "/var/tmp/orvane-artifacts-bench";
const std::string kTree = kBase + "/tree";
const std::string kVerdictFolder = kBase + "/verdict400";

constexpr int kProjects = 300;       // 100 each of Node, Rust and Python: 300 artifact folders
constexpr int kFilesPerPart = 333;   // in the sources and in the artifact of each project

void writeSmall(const std::string& path, int seed) {
    std::ofstream(path, std::ios::binary) << std::string(static_cast<std::size_t>(seed * 37 % 2048), 'x');
}

// Made once, reused by later runs: about 200,000 files in 300 projects grouped 10 to a folder.
// Half the files lie in the artifacts (as node_modules and build output do), half in sources.
const std::string& tree() {
    static const std::string ready = [] {
        const std::string marker = kBase + "/READY-v1";
        if (fs::exists(marker)) return kTree;
        fs::remove_all(kTree);
        int n = 0;
        for (int p = 0; p < kProjects; ++p) {
            const std::string project = kTree + "/group" + std::to_string(p / 10) + "/work/project" + std::to_string(p);
            const char* manifest[] = {"package.json", "Cargo.toml", "pyproject.toml"};
            const char* artifact[] = {"node_modules", "target", ".venv"};
            fs::create_directories(project);
            writeSmall(project + "/" + manifest[p % 3], n++);
            for (int f = 0; f < kFilesPerPart; ++f) {
                const std::string src = project + "/src/m" + std::to_string(f % 10) + "/s" + std::to_string(f % 3);
                const std::string out = project + "/" + artifact[p % 3] + "/pkg" + std::to_string(f / 10);
                if (f < 30) fs::create_directories(src);
                if (f % 10 == 0) fs::create_directories(out);
                writeSmall(src + "/file" + std::to_string(f) + ".txt", n++);
                writeSmall(out + "/file" + std::to_string(f) + ".js", n++);
            }
        }
        std::ofstream(marker) << "200,100 files in " << kProjects << " projects\n";
        return kTree;
    }();
    return ready;
}

const std::string& verdictFolder() {
    static const std::string folder = [] {
        fs::remove_all(kVerdictFolder);
        for (int i = 0; i < 380; ++i) {
            fs::create_directories(kVerdictFolder);
            writeSmall(kVerdictFolder + "/item" + std::to_string(i) + ".dat", i);
        }
        for (int i = 0; i < 20; ++i) {
            const std::string sub = kVerdictFolder + "/folder" + std::to_string(i);
            fs::create_directories(sub);
            for (int j = 0; j < 5; ++j) writeSmall(sub + "/f" + std::to_string(j), j);
        }
        return kVerdictFolder;
    }();
    return folder;
}

void BM_OrvaneArtifacts(benchmark::State& state) {
    const std::string& root = tree();
    for (auto _ : state) benchmark::DoNotOptimize(orvane::runStatus(ORVANE_BINARY, {"artifacts", "--json", root}));
}
BENCHMARK(BM_OrvaneArtifacts)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_FindPrune(benchmark::State& state) {
    const std::string& root = tree();
    for (auto _ : state)
        benchmark::DoNotOptimize(orvane::runStatus("/usr/bin/find", {root, "-type", "d", "(", "-name", "node_modules",
                                                                     "-o", "-name", "target", "-o", "-name", ".venv",
                                                                     ")", "-prune"}));
}
BENCHMARK(BM_FindPrune)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_DeleteVerdict400(benchmark::State& state) {
    const std::string& folder = verdictFolder();
    for (auto _ : state) benchmark::DoNotOptimize(orvane::deleteVerdict(folder, false, false, false, false));
}
BENCHMARK(BM_DeleteVerdict400)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
