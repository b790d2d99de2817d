#include "core/platform/mount_table.hpp"

#include "core/platform/platform.hpp"

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

TEST(MountTable, BrowsableVolumesAreRealStorageOnly) {
    auto volumes = browsableVolumesIn(parseMountInfo(
        "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "2 1 0:5 / /proc rw - proc proc rw\n"
        "3 1 0:6 / /sys/fs/cgroup rw - cgroup2 cgroup rw\n"
        "4 1 0:7 / /dev/shm rw - tmpfs tmpfs rw\n"
        "5 1 8:17 / /media/Backup\\040Drive rw - exfat /dev/sdb1 rw\n"
        "6 1 8:33 / /run/media/ann/USB rw - vfat /dev/sdc1 rw\n"
        "7 1 0:9 / /run/user/1000 rw - ext4 /dev/x rw\n"
        "8 1 0:10 / /mnt/nas rw - nfs4 nas:/export rw\n"
        "9 1 8:2 /etc/hosts /etc/hosts rw - ext4 /dev/sda1 rw\n"
        "10 1 8:3 / /boot/efi rw - vfat /dev/sda2 rw\n"
        "11 1 0:11 / /snap/core/1 ro - squashfs /dev/loop0 ro\n"
        "12 1 8:17 / /media/Backup\\040Drive rw - exfat /dev/sdb1 rw\n"));
    EXPECT_EQ(volumes, (std::vector<BrowsableVolume>{{"/", "/", true},
                                                     {"/media/Backup Drive", "Backup Drive", true},
                                                     {"/run/media/ann/USB", "USB", true},
                                                     {"/mnt/nas", "nas", false}}));
}

}  // namespace
}  // namespace orvane::platform
