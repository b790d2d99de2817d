#include "core/duplicates/content_hash.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/duplicates/content_bytes.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::MiB;
using testing::patterned;
using testing::sha256Hex;

TEST(ContentHash, SampleReadsTheBlocksItsSizeCallsFor) {
    testing::TempDir dir;
    struct Case {
        std::size_t size;
        std::vector<std::pair<std::size_t, std::size_t>> blocks;  // offset, length
    };
    const std::size_t four = 4 * MiB, eight = 8 * MiB;
    const std::vector<Case> cases = {
        {0, {}},
        {four, {{0, four}}},
        {four + 1, {{0, four}, {1, four}}},
        {eight, {{0, four}, {four, four}}},
        {eight + 1, {{0, four}, {(eight + 1) / 2, four}, {four + 1, four}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        const std::string content = patterned(c.size);
        const std::string path = dir.write("f" + std::to_string(c.size), content);
        std::vector<std::string_view> parts;
        for (auto [offset, length] : c.blocks) parts.push_back(std::string_view(content).substr(offset, length));
        EXPECT_EQ(sampleHash(path), sha256Hex(parts));
        EXPECT_EQ(fullHash(path), sha256Hex({content}));
    }
    EXPECT_EQ(sampleHash(dir / "f0"), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sampleHash(dir / "missing"), std::nullopt);
    EXPECT_EQ(fullHash(dir / "missing"), std::nullopt);
}

TEST(ContentHash, OnlyTheFullHashSeesEveryByte) {
    testing::TempDir dir;
    // 16 MiB: the blocks lie at 0, 8 MiB and 12 MiB, so 4 to 8 MiB is read by no sample.
    const std::size_t size = 16 * MiB;
    const std::string original = patterned(size);
    const std::string base = dir.write("original", original);
    const auto baseSample = sampleHash(base);
    const auto baseFull = fullHash(base);
    ASSERT_TRUE(baseSample && baseFull);
    struct Decoy {
        const char* where;
        std::size_t at;
        bool sampleSees;
    };
    for (const Decoy& decoy : {Decoy{"start", 0, true}, Decoy{"middle", size / 2, true}, Decoy{"end", size - 1, true},
                               Decoy{"unsampled", 5 * MiB, false}}) {
        SCOPED_TRACE(decoy.where);
        std::string changed = original;
        changed[decoy.at] = static_cast<char>(changed[decoy.at] ^ 1);
        const std::string path = dir.write(decoy.where, changed);
        EXPECT_EQ(sampleHash(path) != baseSample, decoy.sampleSees);
        EXPECT_NE(fullHash(path), baseFull);
    }
}

}  // namespace
}  // namespace orvane
