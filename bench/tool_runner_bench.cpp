// What the runner costs over starting a program bare: per launch, and per byte of output.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "core/common/tool_runner.hpp"

extern char** environ;

namespace {

constexpr int kLaunches = 1000;

int bareSpawn(const char* tool, const char* arg, bool outputToNull) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (outputToNull) posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>(tool), const_cast<char*>(arg), nullptr};
    if (!arg) argv[1] = nullptr;
    pid_t pid = -1;
    int status = 0;
    if (posix_spawn(&pid, tool, &actions, nullptr, argv, environ) == 0) waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return status;
}

void BM_BareSpawnTrue(benchmark::State& state) {
    for (auto _ : state)
        for (int i = 0; i < kLaunches; ++i) benchmark::DoNotOptimize(bareSpawn("/bin/true", nullptr, false));
}
BENCHMARK(BM_BareSpawnTrue)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_RunToolSplitTrue(benchmark::State& state) {
    for (auto _ : state)
        for (int i = 0; i < kLaunches; ++i)
            benchmark::DoNotOptimize(orvane::runToolSplit("/bin/true", {}, 10, false, orvane::ToolErrors::separate));
}
BENCHMARK(BM_RunToolSplitTrue)->Unit(benchmark::kMillisecond)->Iterations(3);

// 100 MB of lines of tool-like text, made once per run.
const std::string& bigFile() {
    static const std::string path = [] {
        std::string file = "/var/tmp/orvane-bench-100mb.txt";
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        std::string line = "12345\t/Users/someone/Library/Caches/com.example.app/fsCachedData/0123456789ABCDEF\n";
        std::size_t written = 0;
        while (written < 100'000'000) {
            out << line;
            written += line.size();
        }
        return file;
    }();
    return path;
}

void BM_CatToDevNull(benchmark::State& state) {
    const std::string& file = bigFile();
    for (auto _ : state) benchmark::DoNotOptimize(bareSpawn("/bin/cat", file.c_str(), true));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 100'000'000);
}
BENCHMARK(BM_CatToDevNull)->Unit(benchmark::kMillisecond)->Iterations(5);

// The bytes alone through a pipe, with no splitting or checking: what any runner must pay.
void BM_CatThroughBarePipe(benchmark::State& state) {
    const std::string& file = bigFile();
    std::vector<char> buffer(1 << 20);
    for (auto _ : state) {
        int fds[2];
        if (pipe(fds) != 0) state.SkipWithError("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        char* argv[] = {const_cast<char*>("/bin/cat"), const_cast<char*>(file.c_str()), nullptr};
        pid_t pid = -1;
        posix_spawn(&pid, "/bin/cat", &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        std::size_t total = 0;
        for (ssize_t n; (n = read(fds[0], buffer.data(), buffer.size())) > 0;) total += static_cast<std::size_t>(n);
        close(fds[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 100'000'000);
}
BENCHMARK(BM_CatThroughBarePipe)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_RunToolSplitCat(benchmark::State& state) {
    const std::string& file = bigFile();
    for (auto _ : state) {
        auto r = orvane::runToolSplit("/bin/cat", {file}, 60, false, orvane::ToolErrors::separate);
        benchmark::DoNotOptimize(r.lines.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 100'000'000);
}
BENCHMARK(BM_RunToolSplitCat)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
