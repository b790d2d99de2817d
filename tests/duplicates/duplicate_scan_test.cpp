#include "core/duplicates/duplicate_scan.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include <filesystem>
#include <set>

#include "core/platform/platform.hpp"
#include "tests/duplicates/content_bytes.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::MiB;

std::set<std::string> membersOf(const DuplicateGroup& group) {
    std::set<std::string> members(group.copies.begin(), group.copies.end());
    members.insert(group.keeper);
    return members;
}

// The proof goes on from the first block and takes the sampled blocks from memory; at every
// size where the blocks meet, overlap or leave gaps, its digest must still be that of the bytes.
TEST(DuplicateScan, ProvesEveryByteReadingEachAtMostOnce) {
    testing::TempDir dir("/var/tmp");
    const std::vector<std::size_t> sizes = {100, 4 * MiB, 4 * MiB + 1, 8 * MiB, 8 * MiB + 1, 12 * MiB + 3, 20 * MiB};
    std::map<std::int64_t, std::string> digests;
    for (std::size_t size : sizes) {
        const std::string content = testing::patterned(size);
        dir.write("a/" + std::to_string(size), content);
        dir.write("b/" + std::to_string(size), content);
        digests[static_cast<std::int64_t>(size)] = testing::sha256Hex({content});
    }
    // Decoys of the 20 MiB file, one byte apart where each sample block lies and where none does.
    const std::size_t twenty = 20 * MiB;
    for (const auto& [where, at] : std::vector<std::pair<std::string, std::size_t>>{
             {"start", 0}, {"middle", twenty / 2 + 7}, {"end", twenty - 1}, {"unsampled", 6 * MiB}}) {
        std::string changed = testing::patterned(twenty);
        changed[at] = static_cast<char>(changed[at] ^ 1);
        dir.write("decoys/" + where, changed);
    }

    const auto finding = findDuplicates({dir.path()}, Facts::real(), {platform::physicalStart, {}, 2});
    ASSERT_EQ(finding.groups.size(), sizes.size());
    for (const auto& group : finding.groups) {
        SCOPED_TRACE(group.size);
        EXPECT_EQ(group.hash, digests.at(group.size));
        const std::string name = std::to_string(group.size);
        EXPECT_EQ(membersOf(group), (std::set<std::string>{dir / ("a/" + name), dir / ("b/" + name)}));
        EXPECT_EQ(group.claim, (DupeClaim{1, group.size}));
    }
    EXPECT_EQ(finding.stats.candidates, static_cast<std::int64_t>(2 * sizes.size() + 4));
    EXPECT_LE(finding.stats.bytesRead, finding.stats.candidateBytes);
    EXPECT_EQ(finding.claim.copies, static_cast<std::int64_t>(sizes.size()));
}

// What the walk takes: no link followed, no empty file, one file under two names only once, and a
// FIFO or a file that cannot be read never stops the pass.
TEST(DuplicateScan, WalksOnlyRealCopies) {
    testing::TempDir dir("/var/tmp");
    const std::string original = dir.write("Documents/Taxes/Return.pdf", std::string(5000, 'r'));
    const std::string copy = dir.write("Downloads/Return (1).pdf", std::string(5000, 'r'));
    ASSERT_EQ(::link(original.c_str(), (dir / "Documents/Taxes/Return-link.pdf").c_str()), 0);
    std::filesystem::create_symlink(original, dir / "shortcut.pdf");
    std::filesystem::create_symlink(dir / "Documents", dir / "Documents again");
    dir.write("empty-1", "");
    dir.write("empty-2", "");
    const std::string alone = dir.write("alone", std::string(7000, 'a'));
    ASSERT_EQ(::link(alone.c_str(), (dir / "alone-link").c_str()), 0);  // one file, two names: no copy
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    ::chmod(dir.write("unreadable", std::string(5000, 'u')).c_str(), 0);  // read only by root, and no copy

    const auto finding = findDuplicates({dir.path(), dir / "Documents"}, Facts::real(), {platform::physicalStart, {}, 1});
    ASSERT_EQ(finding.groups.size(), 1u);
    const auto& group = finding.groups[0];
    const std::set<std::string> expected = {original, dir / "Documents/Taxes/Return-link.pdf", copy};
    EXPECT_EQ(membersOf(group), expected);
    EXPECT_EQ(group.reason, "Kept: the others carry copy-suffix names.");
    EXPECT_EQ(finding.stats.files, 8);
    // The hard link shares the original's first block: two places, one of them a real copy.
    if (platform::physicalStart(original)) {
        EXPECT_EQ(group.claim, (DupeClaim{1, 5000}));
    }
    EXPECT_EQ(group.sigs.size(), group.copies.size() + 1);
}

}  // namespace
}  // namespace orvane
