// Grouping a large drive's records into probable copies: 200,000 files as a synced drive holds
// them, most small, a share of big ones, and some saved twice in the same second. Beside it, the
// other check of what arrives from the network: the signature of a 64 KB update feed.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "core/cloud/cloud_inventory.hpp"
#include "core/update/update_feed.hpp"
#include "tests/support/test_signer.hpp"

namespace {

std::vector<orvane::CloudFile> driveLikeFiles(unsigned seed) {
    std::mt19937_64 rng(seed);
    const orvane::TimePoint start = orvane::Clock::from_time_t(1'700'000'000);
    std::vector<orvane::CloudFile> files;
    files.reserve(200'000);
    for (int i = 0; i < 200'000; ++i) {
        orvane::CloudFile file;
        file.path = "/Users/ann/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/folder" +
                    std::to_string(rng() % 2000) + "/Report-" + std::to_string(i) + (i % 7 == 0 ? " (1)" : "") + ".pdf";
        // A third are big enough to group; among them sizes and seconds collide now and then.
        file.bytes = i % 3 == 0 ? 1'000'000 + static_cast<std::int64_t>(rng() % 50'000)
                                : static_cast<std::int64_t>(rng() % 999'999);
        file.modified = start + std::chrono::seconds(rng() % 100'000);
        file.onDisk = rng() % 4 == 0;
        // One big file in ten was saved twice: the same size in the same second as the last one.
        if (i % 30 == 0 && i >= 30) {
            file.bytes = files[static_cast<std::size_t>(i - 3)].bytes;
            file.modified = files[static_cast<std::size_t>(i - 3)].modified;
        }
        files.push_back(std::move(file));
    }
    return files;
}

void BM_GroupProbableDupes200k(benchmark::State& state) {
    const auto files = driveLikeFiles(20241124);
    std::size_t groups = 0;
    for (auto _ : state) {
        auto found = orvane::CloudInventory::groupProbableDupes(files, "GoogleDrive");
        groups = found.size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["groups"] = static_cast<double>(groups);
}
BENCHMARK(BM_GroupProbableDupes200k)->Unit(benchmark::kMillisecond);

void BM_VerifyFeed64KB(benchmark::State& state) {
    const orvane::testing::TestSigner signer;
    const std::string key = signer.publicKeyBase64();
    std::string feed = R"({"version":"9.9","download_url":"https://example.com/a.zip","notes":")";
    feed.append(64 * 1024 - feed.size() - 2, 'n').append("\"}");
    const std::string signature = signer.sign(feed);
    for (auto _ : state) {
        auto verdict = orvane::verifyFeed(feed, signature, key);
        if (!std::holds_alternative<orvane::feed::Verified>(verdict)) state.SkipWithError("the feed did not verify");
        benchmark::DoNotOptimize(verdict);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(feed.size()));
}
BENCHMARK(BM_VerifyFeed64KB)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
