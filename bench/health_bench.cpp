// One health sample against the bare reads it is built on (/proc/stat, /proc/meminfo and one
// statvfs), in the same run: the parsing, the battery folder and the locking are the difference.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <optional>

#include "core/common/path.hpp"
#include "core/monitoring/health_sample.hpp"

namespace {

using namespace orvane;

void BM_HealthSample(benchmark::State& state) {
    HealthSampler sampler;
    for (auto _ : state) benchmark::DoNotOptimize(sampler.sample(std::nullopt));
}
BENCHMARK(BM_HealthSample)->Unit(benchmark::kMicrosecond);

std::size_t readBare(const char* path, char* buffer, std::size_t size) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    const ssize_t got = ::read(fd, buffer, size);
    ::close(fd);
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

void BM_BareHealthReads(benchmark::State& state) {
    const std::string home = orvane::home();
    char stat[4096], meminfo[16384];
    for (auto _ : state) {
        benchmark::DoNotOptimize(readBare("/proc/stat", stat, sizeof stat));
        benchmark::DoNotOptimize(readBare("/proc/meminfo", meminfo, sizeof meminfo));
        struct statvfs vfs{};
        benchmark::DoNotOptimize(::statvfs(home.c_str(), &vfs));
    }
}
BENCHMARK(BM_BareHealthReads)->Unit(benchmark::kMicrosecond);

// The parts of a sample, to see where its time goes.
void BM_SampleParts(benchmark::State& state) {
    for (auto _ : state) {
        switch (state.range(0)) {
            case 0: benchmark::DoNotOptimize(platform::cpuLoadTicks()); break;
            case 1: benchmark::DoNotOptimize(platform::hostMemory()); break;
            case 2: benchmark::DoNotOptimize(platform::battery()); break;
            default: benchmark::DoNotOptimize(platform::freeBytes("/")); break;
        }
    }
}
BENCHMARK(BM_SampleParts)->Unit(benchmark::kMicrosecond)->DenseRange(0, 3);

}  // namespace

BENCHMARK_MAIN();
