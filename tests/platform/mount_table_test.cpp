#include "core/platform/mount_table.hpp"

#include <gtest/gtest.h>

namespace orvane::platform {
namespace {

constexpr std::string_view kTable =
    "22 1 252:1 / / rw,relatime shared:1 - ext4 /dev/vda1 rw\n"
    "23 22 0:21 / /proc rw,nosuid,nodev,noexec,relatime shared:12 - proc proc rw\n"
    "40 22 8:17 / /media/My\\040Drive rw,nosuid shared:30 master:2 - vfat /dev/sdb1 rw,fmask=0022\n"
    "41 22 0:45 / /tmp rw - tmpfs tmpfs rw\n"
    "42 41 0:46 / /tmp rw - tmpfs second rw\n"
    "garbage line without separator\n"
    "43 22 0:47 /sub /srv/bind rw - ext4 /dev/vda1 rw\n"
    "44 22 0:48 / relative rw - ext4 /dev/vda2 rw\n"
    "45 22 0:49 / /short rw -\n";

TEST(MountTable, ParsesEveryWellFormedLine) {
    auto table = parseMountInfo(kTable);
    ASSERT_EQ(table.size(), 6u);
    EXPECT_EQ(table[0], (MountTableEntry{"/", "/", "rw,relatime", "ext4", "/dev/vda1"}));
    EXPECT_EQ(table[2].mountPoint, "/media/My Drive");  // octal escape decoded
    EXPECT_EQ(table[2].fileSystemType, "vfat");         // two optional fields skipped
    EXPECT_EQ(table[5].root, "/sub");
    EXPECT_TRUE(parseMountInfo("").empty());
}

TEST(MountTable, LongestMountPointHoldsThePath) {
    auto table = parseMountInfo(kTable);
    EXPECT_EQ(mountContaining(table, "/home/a")->mountPoint, "/");
    EXPECT_EQ(mountContaining(table, "/proc")->mountPoint, "/proc");
    EXPECT_EQ(mountContaining(table, "/proc/1/fd")->mountPoint, "/proc");
    EXPECT_EQ(mountContaining(table, "/processes")->mountPoint, "/");
    EXPECT_EQ(mountContaining(table, "/media/My Drive/x")->mountPoint, "/media/My Drive");
    EXPECT_EQ(mountContaining(table, "/tmp/f")->source, "second");  // the later of two stacked
    EXPECT_FALSE(mountContaining({}, "/x"));
}

}  // namespace
}  // namespace orvane::platform
