#include "core/platform/platform.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "tests/support/temp_dir.hpp"

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using orvane::testing::TempDir;

TEST(Platform, FactsOfEntriesWithoutFollowingLinks) {
    TempDir dir;
    std::ofstream(dir / "file") << "12345";
    fs::create_directory(dir / "folder");
    fs::create_symlink(dir / "file", dir / "link");
    fs::create_symlink(dir / "nowhere", dir / "dangling");

    auto file = lstatFacts(dir / "file");
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->isRegularFile());
    EXPECT_EQ(file->size, 5);
    EXPECT_EQ(file->uid, getuid());
    EXPECT_EQ(file->flags, 0u);
    EXPECT_TRUE(lstatFacts(dir / "folder")->isDirectory());
    EXPECT_TRUE(lstatFacts(dir / "link")->isSymlink());
    EXPECT_TRUE(statFacts(dir / "link")->isRegularFile());
    EXPECT_TRUE(lstatFacts(dir / "dangling")->isSymlink());
    EXPECT_FALSE(statFacts(dir / "dangling"));
    EXPECT_FALSE(lstatFacts(dir / "absent"));

    int dirFD = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(dirFD, 0);
    EXPECT_TRUE(entryFacts(dirFD, "link")->isSymlink());
    EXPECT_EQ(entryFacts(dirFD, "file")->inode, file->inode);
    EXPECT_EQ(fstatFacts(dirFD)->inode, lstatFacts(dir.path())->inode);
    ::close(dirFD);
}

TEST(Platform, DescriptorPathIsTheKernelsPath) {
    TempDir dir;
    std::ofstream(dir / "file") << "x";
    fs::create_symlink(dir.path(), dir / "via");
    int fd = ::open((dir / "via/file").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(descriptorPath(fd), dir / "file");  // the link is resolved away
    ::unlink((dir / "file").c_str());
    EXPECT_FALSE(descriptorPath(fd));  // a removed file has no path left
    ::close(fd);
    EXPECT_FALSE(descriptorPath(fd));
}

TEST(Platform, RenameNeverReplaces) {
    TempDir dir;
    std::ofstream(dir / "a") << "a";
    std::ofstream(dir / "b") << "b";
    int fd = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(renameNoReplace(fd, "a", fd, "b"), EEXIST);
    EXPECT_TRUE(fs::exists(dir / "a"));
    EXPECT_EQ(renameNoReplace(fd, "a", fd, "c"), 0);
    EXPECT_FALSE(fs::exists(dir / "a"));
    EXPECT_TRUE(fs::exists(dir / "c"));
    EXPECT_EQ(renameNoReplace(fd, "missing", fd, "d"), ENOENT);
    ::close(fd);
}

TEST(Platform, MountOfAPath) {
    auto root = mountOf("/");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->mountPoint, "/");
    EXPECT_FALSE(mountOf("/no/such/place/anywhere"));
    // /proc is a mount point of its own on every Linux system.
    auto proc = mountOf("/proc/self");
    ASSERT_TRUE(proc);
    EXPECT_EQ(proc->mountPoint, "/proc");
    EXPECT_EQ(proc->fileSystemType, "proc");
}

TEST(Platform, WalkablePathTakesOffTheAddedPrivate) {
    if (hasPrivateFolder()) GTEST_SKIP() << "this system has /private; the path is walked as it is";
    EXPECT_EQ(walkablePath("/private/tmp/x"), "/tmp/x");
    EXPECT_EQ(walkablePath("/private/var"), "/var");
    EXPECT_EQ(walkablePath("/private/etc/hosts"), "/etc/hosts");
    EXPECT_EQ(walkablePath("/private/other"), "/private/other");
    EXPECT_EQ(walkablePath("/private/tmpx"), "/private/tmpx");
    EXPECT_EQ(walkablePath("/Users/a"), "/Users/a");
}

}  // namespace
}  // namespace orvane::platform
