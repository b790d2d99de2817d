#include "core/duplicates/private_bytes.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "core/duplicates/clone_claim.hpp"
#include "core/platform/platform.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

TEST(PrivateBytes, WhatTheKernelTellsOfARealFile) {
    testing::TempDir dir("/var/tmp");
    const std::string file = dir.write("data.bin", std::string(1 << 20, 'a'));
    const auto bytes = privateBytesOfFile(file);
    if (!bytes) GTEST_SKIP() << "FIEMAP refused on " << dir.path() << ": the private size is unknown here";
    const auto facts = platform::lstatFacts(file);
    ASSERT_TRUE(facts);
    EXPECT_GE(*bytes, facts->size);
    EXPECT_LE(*bytes, facts->allocatedBytes);

    // A hard link is the same inode: the same storage, the same start.
    const std::string link = dir / "link.bin";
    ASSERT_EQ(::link(file.c_str(), link.c_str()), 0);
    EXPECT_EQ(privateBytesOfFile(link), bytes);
    const auto start = physicalStart(file);
    ASSERT_TRUE(start);
    EXPECT_EQ(physicalStart(link), start);
    // A plain copy has storage of its own somewhere else.
    const std::string copy = dir.write("copy.bin", std::string(1 << 20, 'a'));
    EXPECT_NE(physicalStart(copy), start);

    const std::string empty = dir.write("empty", "");
    EXPECT_EQ(privateBytesOfFile(empty), 0);
    EXPECT_EQ(physicalStart(empty), std::nullopt);
    EXPECT_EQ(physicalStart(dir / "missing"), std::nullopt);
}

TEST(PrivateBytes, FoldersSumRegularFilesUpToTheBound) {
    testing::TempDir dir;
    // The size on record stands for the private size, so the walk is judged on any file system.
    auto sizeOf = [](const std::string& path) -> std::optional<std::int64_t> {
        const auto facts = platform::lstatFacts(path);
        return facts ? std::optional(facts->size) : std::nullopt;
    };
    const std::string many = dir.mkdir("many");
    for (int i = 0; i < 5000; ++i) dir.write("many/" + std::to_string(i % 10) + "/" + std::to_string(i), "ab");
    EXPECT_EQ(privateBytes(many, 5000, sizeOf), 10000);
    dir.write("many/extra", "abc");
    EXPECT_EQ(privateBytes(many, 5000, sizeOf), std::nullopt);
    EXPECT_EQ(privateBytes(many, 5001, sizeOf), 10003);

    const std::string mixed = dir.mkdir("mixed");
    const std::string file = dir.write("mixed/a", "12345");
    std::filesystem::create_symlink(many, mixed + "/to-many");
    std::filesystem::create_symlink(file, mixed + "/to-a");
    EXPECT_EQ(privateBytes(mixed, 5000, sizeOf), 5);
    EXPECT_EQ(privateBytes(mixed + "/to-a", 5000, sizeOf), 0);
    EXPECT_EQ(privateBytes(file, 5000, sizeOf), 5);
    EXPECT_EQ(privateBytes(dir.mkdir("empty"), 5000, sizeOf), 0);
    EXPECT_EQ(privateBytes(dir / "missing", 5000, sizeOf), std::nullopt);
    auto unknownForA = [&](const std::string& path) { return path == file ? std::nullopt : sizeOf(path); };
    dir.write("mixed/b", "1");
    EXPECT_EQ(privateBytes(mixed, 5000, unknownForA), std::nullopt);
}

TEST(PrivateBytes, SharedStorageWarning) {
    auto only = [](const std::string& freed, const std::string& shared) -> std::optional<std::string> {
        return "Moving this frees only about " + freed + " on this Mac: " + shared +
               " of it shares storage with other copies that stay here (APFS clones), so that part isn't released. "
               "You can still move it to keep a copy on the drive.";
    };
    auto nothing = [](const std::string& shared) -> std::optional<std::string> {
        return "Moving this frees almost nothing on this Mac: all " + shared +
               " of it shares storage with other copies that stay here (APFS clones), so it isn't released. "
               "You can still move it to keep a copy on the drive.";
    };
    struct Case {
        std::optional<std::int64_t> privateTotal;
        std::int64_t selected;
        std::optional<std::string> expected;
    };
    const std::vector<Case> cases = {
        {9'000'000'000, 10'000'000'000, std::nullopt},
        {8'000'000'000, 10'000'000'000, only("8 GB", "2 GB")},
        {500'000, 10'000'000'000, nothing("10 GB")},
        {0, 50'000'000, std::nullopt},
        {std::nullopt, 10'000'000'000, std::nullopt},
        {0, 0, std::nullopt},
        {100'000'001, 200'000'000, std::nullopt},  // 99,999,999 shared
        {100'000'000, 200'000'000, only("100 MB", "100 MB")},
        {999'999, 1'000'000'000, nothing("999 MB")},
    };
    for (const Case& c : cases)
        EXPECT_EQ(sharedStorageWarningOf(c.privateTotal, c.selected), c.expected)
            << c.privateTotal.value_or(-1) << " of " << c.selected;

    testing::TempDir dir;
    EXPECT_EQ(sharedStorageWarning({dir / "missing"}, 10'000'000'000), std::nullopt);
}

}  // namespace
}  // namespace orvane
