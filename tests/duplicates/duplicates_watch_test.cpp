#include "core/duplicates/duplicates_watch.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace orvane {
namespace {

TEST(DuplicatesWatch, OnlyLargeFilesWhoseBytesAreHere) {
    struct Case {
        std::uint32_t type;
        std::int64_t size;
        std::int64_t blocks;
        bool eligible;
    };
    const std::vector<Case> cases = {
        {S_IFREG, 999'999, 2000, false},
        {S_IFREG, 1'000'000, 0, false},
        {S_IFREG, 1'000'000, 196, true},
        {S_IFREG, 1'000'000, 195, false},
        {S_IFDIR, 1'000'000, 2000, false},
    };
    for (const Case& c : cases) {
        platform::FileFacts facts;
        facts.mode = c.type | 0644;
        facts.size = c.size;
        facts.allocatedBytes = c.blocks * 512;
        EXPECT_EQ(duplicatesWatchEligible(facts), c.eligible) << c.size << " bytes, " << c.blocks << " blocks";
    }
}

}  // namespace
}  // namespace orvane
