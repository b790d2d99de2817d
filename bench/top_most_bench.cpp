// The top-most sum over a scan-sized list: first call, and the memo hit every redraw gets.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "core/scan/top_most.hpp"

namespace {

// 20,000 items as a home scan yields them: folders and files at several depths under a few
// roots, many nested in others, and a share of pseudo-groups whose members are real paths.
std::vector<orvane::SpaceItem> scanLikeItems(unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::string> folders = {"/Users/ann/Library/Caches", "/Users/ann/Library/Application Support",
                                        "/Users/ann/Downloads", "/Users/ann/Movies", "/Users/ann/Developer"};
    std::vector<orvane::SpaceItem> items;
    items.reserve(20000);
    for (int i = 0; i < 20000; ++i) {
        orvane::SpaceItem item;
        item.sizeBytes = static_cast<std::int64_t>(rng() % 5'000'000'000ULL);
        item.safety = orvane::Safety::safe;
        if (i % 10 == 9) {
            item.id = "group:dupes-" + std::to_string(i);
            for (int m = 0; m < 3; ++m) item.extra.push_back(folders[rng() % folders.size()] + "/f" + std::to_string(rng() % 50000));
        } else {
            std::string path = folders[rng() % folders.size()];
            const int depth = 1 + static_cast<int>(rng() % 4);
            for (int d = 0; d < depth; ++d) path += "/d" + std::to_string(rng() % 40);
            item.id = path;
            item.isDir = true;
            if (rng() % 3 == 0) folders.push_back(path);  // later items nest inside it
            if (folders.size() > 400) folders.resize(5);
        }
        items.push_back(std::move(item));
    }
    return items;
}

void BM_TopMostFirstCall(benchmark::State& state) {
    unsigned seed = 1;
    for (auto _ : state) {
        state.PauseTiming();
        auto items = scanLikeItems(seed++);  // a new list each time: never a memo hit
        state.ResumeTiming();
        benchmark::DoNotOptimize(orvane::topMostByPath(items));
    }
}
BENCHMARK(BM_TopMostFirstCall)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_TopMostMemoHit(benchmark::State& state) {
    auto items = scanLikeItems(7);
    orvane::topMostByPath(items);
    for (auto _ : state) benchmark::DoNotOptimize(orvane::topMostByPath(items));
}
BENCHMARK(BM_TopMostMemoHit)->Unit(benchmark::kMillisecond)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
