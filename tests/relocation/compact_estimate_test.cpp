#include "core/relocation/compact_estimate.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "core/ledger/ledger.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/relocation/internal/compact_estimate_cache.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using relocation::internal::cachedCompactEstimate;
using relocation::internal::compactEstimateKey;
using relocation::internal::forgetCompactEstimates;
using relocation::internal::rememberCompactEstimate;

std::string randomBytes(std::size_t count, unsigned seed = 7) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    for (auto& byte : bytes) byte = static_cast<char>(generator() & 0xFF);
    return bytes;
}

SpaceItem file(std::string path, std::int64_t size, bool isDir = false) {
    SpaceItem item;
    item.id = std::move(path);
    item.sizeBytes = size;
    item.isDir = isDir;
    return item;
}

TEST(CompactEstimate, SamplesOfRealFiles) {
    forgetCompactEstimates();
    testing::TempDir d;
    const std::string small = d.write("small", std::string(4096, 'a'));
    const std::string zeros = d.write("zeros", std::string(4097, '\0'));
    const std::string noise = d.write("noise", randomBytes(4097));
    EXPECT_EQ(sampledCompactBytes(small, 4096), std::nullopt);  // one block either way
    EXPECT_LT(sampledCompactBytes(zeros, 4097).value(), 100);   // read whole, and it shrinks
    EXPECT_EQ(sampledCompactBytes(noise, 4097), 4097);          // a sample that grows counts at full size

    // Zeros first, noise after: one sample sees only the zeros, three see the noise as well.
    constexpr std::int64_t kSixMiB = 6'291'456;
    const std::string mixed = std::string(2'097'152, '\0') + randomBytes(kSixMiB - 2'097'152 + 1);
    const std::string six = d.write("six", mixed.substr(0, kSixMiB));
    const std::string sixAndOne = d.write("sixAndOne", mixed);
    EXPECT_LT(sampledCompactBytes(six, kSixMiB).value(), kSixMiB / 100);
    const auto three = sampledCompactBytes(sixAndOne, kSixMiB + 1).value();
    EXPECT_GT(three, kSixMiB * 6 / 10);
    EXPECT_LT(three, kSixMiB * 7 / 10);

    // The same path at the same size is answered from memory, not read again.
    testing::writeFile(zeros, randomBytes(4097));
    EXPECT_LT(sampledCompactBytes(zeros, 4097).value(), 100);

    // Nothing to read: gone, a link (never followed), a FIFO (never waited on).
    std::filesystem::create_symlink(noise, d / "link");
    ASSERT_EQ(::mkfifo((d / "fifo").c_str(), 0600), 0);
    for (const char* name : {"gone", "link", "fifo"}) EXPECT_EQ(sampledCompactBytes(d / name, 8192), std::nullopt) << name;
}

TEST(CompactEstimate, SampleSpreadAndMemoryBound) {
    std::vector<SpaceItem> items;
    for (int i = 1; i <= 21; ++i) items.push_back(file("/f" + std::to_string(i), i));
    std::vector<std::int64_t> sizes;
    for (const auto& item : compactEstimateSample(items)) sizes.push_back(item.sizeBytes);
    // Largest first; of 21, the truncation of 1.05 × i takes every index but the last.
    std::vector<std::int64_t> expected;
    for (int size = 21; size >= 2; --size) expected.push_back(size);
    EXPECT_EQ(sizes, expected);
    // Up to the limit, all of them, ties in their order.
    const auto few = compactEstimateSample({file("/a", 1), file("/b", 5), file("/c", 1)});
    ASSERT_EQ(few.size(), 3u);
    EXPECT_EQ(few[2].id, "/c");

    forgetCompactEstimates();
    for (int i = 0; i < 512; ++i) rememberCompactEstimate("k" + std::to_string(i), i);
    rememberCompactEstimate("k0", 99);  // a known key arrives again: nothing is forgotten
    EXPECT_EQ(cachedCompactEstimate("k0"), 99);
    rememberCompactEstimate("k512", 512);
    EXPECT_EQ(cachedCompactEstimate("k255"), std::nullopt);
    EXPECT_EQ(cachedCompactEstimate("k256"), 256);
    EXPECT_EQ(cachedCompactEstimate("k512"), 512);
}

TEST(CompactEstimate, Lines) {
    // Estimates planted in memory stand for files, so each percentage is exact.
    const auto planted = [](std::vector<SpaceItem> items, std::vector<std::int64_t> estimates) {
        forgetCompactEstimates();
        for (std::size_t i = 0; i < estimates.size(); ++i)
            rememberCompactEstimate(compactEstimateKey(items[i].id, items[i].sizeBytes), estimates[i]);
        return compactEstimateLine(items);
    };
    std::vector<SpaceItem> many;
    std::vector<std::int64_t> manyEstimates;
    for (int i = 0; i < 25; ++i) {
        many.push_back(file("/many/" + std::to_string(i), 1'000'000));
        manyEstimates.push_back(i % 2 ? 400'000 : 1'000'000);
    }
    const struct {
        std::vector<SpaceItem> items;
        std::vector<std::int64_t> estimates;
        std::string line;
    } cases[] = {
        {{file("/d", 50'000, true)}, {}, "\n\nBest for old, rarely-touched data; already-compressed media saves little."},
        {{file("/gone", 50'000)}, {}, "\n\nBest for old, rarely-touched data; already-compressed media saves little."},
        {{file("/a", 10'000'000)}, {9'600'000}, "\n\nSampled just now: this data barely compresses — expect little to no saving."},
        {{file("/a", 10'000'000)},
         {9'500'000},
         "\n\nSampled just now: expect about 9.5 MB after — around 500 KB back (~5%). The exact figure is measured "
         "as it runs."},
        // A folder's bytes count in the total, the file alone in the sample; a negative size counts as nothing.
        {{file("/a", 10'000'000), file("/d", 5'000'000, true), file("/u", -1)},
         {5'000'000},
         "\n\nSampled 10 MB of it just now: expect about 7.5 MB after — around 7.5 MB back (~50%). The exact figure is "
         "measured as it runs."},
        // A file without an estimate is passed over: the sampled bytes are the other's.
        {{file("/a", 10'000'000), file("/gone", 20'000'000)},
         {2'000'000},
         "\n\nSampled 10 MB of it just now: expect about 6 MB after — around 24 MB back (~80%). The exact figure is "
         "measured as it runs."},
        {many, manyEstimates,
         "\n\nSampled 20 of these 25 files just now: expect about 17.5 MB after — around 7.5 MB back (~30%). The exact "
         "figure is measured as it runs."},
        {std::vector<SpaceItem>(many.begin(), many.begin() + 21), std::vector<std::int64_t>(21, 970'000),
         "\n\nSampled 20 of these 21 files just now: this data barely compresses — expect little to no saving."},
    };
    for (const auto& c : cases) EXPECT_EQ(planted(c.items, c.estimates), c.line) << c.line;
    forgetCompactEstimates();
}

TEST(CompactEstimate, IncompressibleList) {
    testing::TempDir d;
    Ledger::setTestDirOverride(d / "ledger");
    const std::string media = d.write("clip.mov", "moov");
    EXPECT_EQ(incompressibleKey(d / "gone"), std::nullopt);
    const auto key = incompressibleKey(media).value();
    struct stat st{};
    ::lstat(media.c_str(), &st);
    EXPECT_EQ(key, media + "|4|" + std::to_string(st.st_mtim.tv_sec));

    rememberIncompressible(media);
    rememberIncompressible(media);
    rememberIncompressible(d / "gone");
    EXPECT_EQ(incompressibleKeys(), std::vector<std::string>{key});

    // Full: the oldest goes.
    std::vector<std::string> full;
    for (int i = 0; i < 2000; ++i) full.push_back("/old/" + std::to_string(i));
    setUserDefault("ov.incompressible", full);
    rememberIncompressible(media);
    const auto kept = incompressibleKeys();
    ASSERT_EQ(kept.size(), 2000u);
    EXPECT_EQ(kept.front(), "/old/1");
    EXPECT_EQ(kept.back(), key);

    setUserDefault("ov.incompressible", "not a list");
    EXPECT_TRUE(incompressibleKeys().empty());
    Ledger::setTestDirOverride(std::nullopt);
}

}  // namespace
}  // namespace orvane
