#include "core/safety/clear_outcome.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

TEST(ClearAccess, OwnerAndWritability) {
    const testing::TempDir d;
    const std::string mine = d.mkdir("mine");
    EXPECT_EQ(clearAccess(d / "missing"), ClearAccess::missing);
    EXPECT_EQ(clearAccess(mine), ClearAccess::ours);
    std::filesystem::create_directory_symlink(d / "nowhere", d / "dangling");
    // lstat finds the link; access follows it and finds nothing to write to.
    EXPECT_EQ(clearAccess(d / "dangling"), ClearAccess::needsAdministrator);
    // Root may write anywhere, so it can only show someone else's folder; anyone else, only an unwritable own one.
    if (::getuid() == 0) ASSERT_EQ(::chown(mine.c_str(), 4321, 4321), 0);
    else ASSERT_EQ(::chmod(mine.c_str(), 0555), 0);
    EXPECT_EQ(clearAccess(mine), ClearAccess::needsAdministrator);
}

TEST(ClearOutcome, EveryRow) {
    struct Case {
        std::int64_t removed, skipped;
        ClearAccess access;
        std::int64_t size;
        ClearOutcome expected;
    };
    const std::vector<Case> cases = {
        {0, 0, ClearAccess::missing, 100, {"• Caches: it was already gone.", true, 0, false}},
        {0, 4, ClearAccess::needsAdministrator, 100,
         {"• Caches: nothing was moved — this folder belongs to macOS, not to you, so removing it needs your "
          "password. Close this window and Velloran Orvane will ask.",
          false, 0, true}},
        {0, 3, ClearAccess::ours, 100,
         {"✗ Caches: nothing was moved — 3 item(s) could not be removed. The folder is unchanged.", false, 0, false}},
        {0, 0, ClearAccess::ours, 100,
         {"✗ Caches: nothing was moved — 0 item(s) could not be removed. The folder is unchanged.", false, 0, false}},
        {3, 0, ClearAccess::ours, 2'500'000, {"✓ Caches: cleared 3 item(s) — ~2.5 MB freed", true, 2'500'000, false}},
        {3, 0, ClearAccess::ours, -1, {"✓ Caches: cleared 3 item(s) — ~Zero KB freed", true, 0, false}},
        {3, -2, ClearAccess::needsAdministrator, 0, {"✓ Caches: cleared 3 item(s) — ~Zero KB freed", true, 0, false}},
        {5, 2, ClearAccess::ours, 9'000,
         {"• Caches: moved 5 item(s), 2 could not be removed — the folder is not empty, so the space is only partly "
          "back.",
          true, 0, false}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(clearOutcome("Caches", c.removed, c.skipped, c.access, c.size), c.expected)
            << c.removed << " removed, " << c.skipped << " skipped, " << rawValue(c.access);
}

}  // namespace
}  // namespace orvane
