#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/cloud/cloud_folder.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

// A file of `bytes` whose content is either written here or only a placeholder (sparse), with its
// modification time at `seconds` and `nanoseconds`.
void makeFile(const std::string& path, std::int64_t bytes, bool here, std::time_t seconds, long nanoseconds = 0) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << path;
    if (here) {
        const std::string chunk(64 * 1024, 'x');
        for (std::int64_t left = bytes; left > 0; left -= static_cast<std::int64_t>(chunk.size()))
            ASSERT_GT(::write(fd, chunk.data(), static_cast<std::size_t>(std::min<std::int64_t>(left, chunk.size()))), 0);
    } else {
        ASSERT_EQ(::ftruncate(fd, bytes), 0);
    }
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::futimens(fd, times), 0);
    ::close(fd);
}

TEST(CloudFolder, InventoryCountsPlaceholdersPointersAndProbableCopies) {
    testing::TempDir dir;
    const std::string root = dir.mkdir("Drive");
    dir.mkdir("Drive/Trips");
    makeFile(root + "/Trip.mov", 3'000'000, false, 1'790'000'000, 100'000'000);
    makeFile(root + "/Trips/Copy of Trip.mov", 3'000'000, true, 1'790'000'000, 900'000'000);
    makeFile(root + "/Notes.txt", 2'000, true, 1'790'000'100);
    dir.write("Drive/Plan.gdoc", R"({"doc_id":"abc"})");
    for (int i = 0; i < 12; ++i) makeFile(root + "/Trips/part" + std::to_string(i), 10 + i, true, 1'790'000'000);
    ASSERT_EQ(::symlink("/etc/passwd", (root + "/link").c_str()), 0);
    ASSERT_EQ(::mkfifo((root + "/pipe").c_str(), 0644), 0);

    const CloudInventory inventory = takeCloudInventory("Drive", root, Facts::real());
    EXPECT_EQ(inventory.files, 16);
    EXPECT_EQ(inventory.opaque, 1);
    EXPECT_EQ(inventory.cloudOnly, 1);
    EXPECT_EQ(inventory.remoteBytes, 6'002'000 + (10 + 21) * 6);
    EXPECT_GE(inventory.localBytes, 3'000'000);
    EXPECT_LT(inventory.localBytes, 3'500'000);
    ASSERT_EQ(inventory.largest.size(), kCloudLargestKept);
    EXPECT_EQ(inventory.largest[0].path, root + "/Trip.mov");  // ties go by path
    EXPECT_FALSE(inventory.largest[0].onDisk);
    EXPECT_EQ(inventory.largest[1].path, root + "/Trips/Copy of Trip.mov");
    EXPECT_TRUE(inventory.largest[1].onDisk);
    EXPECT_EQ(inventory.largest[9].bytes, 15);

    ASSERT_EQ(inventory.dupeGroups.size(), 1u);
    const CloudDupeGroup& group = inventory.dupeGroups[0];
    EXPECT_EQ(group.confidence, DupeConfidence::high);
    EXPECT_EQ(group.id(), root + "/Trip.mov");  // the files beside a folder come before its sub-folders
    EXPECT_EQ(group.files[1].modified - group.files[0].modified, std::chrono::milliseconds(800));
}

}  // namespace
}  // namespace orvane
