#include "core/report/disk_walk.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;

std::int64_t duBytes(const std::string& path) {
    const std::string command = "du -skx '" + path + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    long long kib = -1;
    if (pipe) {
        if (std::fscanf(pipe, "%lld", &kib) != 1) kib = -1;
        ::pclose(pipe);
    }
    return kib * 1024;
}

TEST(DiskWalk, MeasuresAsDuDoesWithLinksOnceAndNoneFollowed) {
    TempDir dir;
    dir.write("a/one", std::string(100'000, 'x'));
    dir.write("a/b/two", std::string(300'000, 'y'));
    dir.write("c/three", std::string(50'000, 'z'));
    ASSERT_EQ(::link((dir / "a/b/two").c_str(), (dir / "c/two-again").c_str()), 0);
    std::filesystem::create_directory_symlink(dir / "a", dir / "c/to-a");
    dir.write("p/package.json", "{}");
    dir.write("p/node_modules/x/node_modules/y/i.js", std::string(9000, 'j'));
    dir.write("p/target/not-rust", "x");

    const auto walk = walkAsDuMeasures(dir.path(), Facts::real());
    EXPECT_EQ(walk.totalBytes(), duBytes(dir.path()));
    EXPECT_EQ(walk.folders.at(dir / "a").bytes, duBytes(dir / "a"));
    EXPECT_EQ(walk.files, 7);  // the second name of "two" is not counted again; the link counts as an entry
    EXPECT_EQ(walk.folders.at(dir / "a").folders, std::vector<std::string>{"b"});
    EXPECT_FALSE(walk.folders.count(dir / "c/to-a"));

    // The outermost node_modules only, and a "target" without its Cargo.toml is somebody's own.
    const auto artifacts = projectArtifactsOf(walk);
    ASSERT_EQ(artifacts.size(), 1U);
    EXPECT_EQ(artifacts[0].path, dir / "p/node_modules");
    EXPECT_EQ(artifacts[0].bytes, duBytes(dir / "p/node_modules"));

    const auto tree = diskTreeOf(walk, 1);
    ASSERT_TRUE(tree.count(dir.path()));
    EXPECT_FALSE(tree.count(dir / "a"));
    EXPECT_EQ(tree.at(dir.path()).front().id, dir / "a");  // the largest first

    Ledger::DiskTree grown = tree;
    grown[dir.path()].front().sizeBytes += 5000;
    grown[dir.path()].back().sizeBytes -= 1;
    EXPECT_EQ(folderGrowth(tree, grown, 5),
              (std::vector<FolderGrowth>{{dir / "a", tree.at(dir.path()).front().sizeBytes,
                                          tree.at(dir.path()).front().sizeBytes + 5000}}));

    const auto missing = walkAsDuMeasures(dir / "nothing", Facts::real());
    EXPECT_EQ(missing.unreadable, std::vector<std::string>{dir / "nothing"});
    EXPECT_EQ(missing.totalBytes(), -1);
}

}  // namespace
}  // namespace orvane
