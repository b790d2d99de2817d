#include "core/scan/disk_measure.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/common/json_files.hpp"
#include "core/common/tool_runner.hpp"

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> lines(const std::string& text) { return splitToolOutput(text, false); }

std::vector<std::string> captured(const std::string& name) {
    auto text = readFile(std::string(TEST_DATA_DIR) + "/du/" + name);
    EXPECT_TRUE(text) << name;
    return lines(text.value_or(""));
}

class TempTree : public ::testing::Test {
protected:
    void write(const std::string& name, std::size_t bytes) { temp_.write(name, std::string(bytes, 'x')); }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path();
};

TEST(DuParsing, BatchLines) {
    const std::vector<std::string> asked = {"/a", "/b", "/c", "/d", "/e", "/f"};
    auto sizes = parseDuBatch(lines("4\t/a\n"
                                    "8\t/b\n"
                                    "16\t/b\n"          // the first report wins
                                    " 5\t/c\n"          // not a number
                                    "\t/d\n"            // no size
                                    "7 /e\n"            // no tab
                                    "9\t/f\tg\n"        // a tab inside the path
                                    "+2\t/extra\n"),
                              asked);
    const std::map<std::string, std::int64_t> expected = {{"/a", 4096},  {"/b", 8192}, {"/c", -1},
                                                         {"/d", -1},    {"/e", -1},   {"/f", -1},
                                                         {"/f\tg", 9216}, {"/extra", 2048}};
    EXPECT_EQ(sizes, expected);
    EXPECT_EQ(parseDuBatch({}, {"/x"}), (std::map<std::string, std::int64_t>{{"/x", -1}}));
    EXPECT_EQ(parseDuBatch({"99999999999999999\t/huge"}, {}).count("/huge"), 0u);  // bytes would overflow

    auto gnu = parseDuBatch(captured("gnu-batch-stdout.txt"), {"/tmp/dutest", "/tmp/dutest/locked"});
    EXPECT_EQ(gnu.at("/tmp/dutest"), 24 * 1024);
    EXPECT_EQ(gnu.at("/tmp/dutest/locked"), -1);
}

TEST(DuParsing, DeniedFoldersInBothDialects) {
    EXPECT_EQ(parseDuDenied(captured("bsd-denied-stderr.txt")),
              (std::vector<std::string>{"/Users/ann/Library/Mail", "/Users/ann/Library/Safari", "/Users/ann/.Trash",
                                        "/Users/ann/Library/Containers/com.apple.Safari/Data"}));
    EXPECT_EQ(parseDuDenied(captured("gnu-denied-stderr.txt")),
              (std::vector<std::string>{"/tmp/dutest/locked", "/tmp/dutest/new\nline", "/tmp/dutest/it's locked"}));
    EXPECT_EQ(parseDuDenied({"du: /a: Permission denied", "du: /a: Permission denied"}),
              (std::vector<std::string>{"/a", "/a"}));  // duplicates stay
    EXPECT_EQ(parseDuDenied({"du: cannot access '/gone': Permission denied",
                             "du: cannot read directory \u2018/curly\u2019: Permission denied",
                             "du: cannot read directory 'a'\\''b': Permission denied",
                             "du: cannot read directory '/x/'$'\\t''y': Operation not permitted",
                             "du: : Permission denied", "du:/nospace: Permission denied",
                             "du: /short"}),
              (std::vector<std::string>{"/gone", "/curly", "/x/\ty"}));
}

TEST(DuParsing, TopmostPaths) {
    EXPECT_EQ(topmostPaths({"/a/b/c", "/a", "/a/b", "/x/y", "/x/yz", "/x/y/z", "/a"}),
              (std::vector<std::string>{"/a", "/x/y", "/x/yz"}));
    EXPECT_EQ(topmostPaths({"/", "/a"}), (std::vector<std::string>{"/", "/a"}));  // "/" is no parent here
    EXPECT_TRUE(topmostPaths({}).empty());
}

TEST_F(TempTree, MeasuresWithRealDu) {
    write("big", 300 * 1024);
    write("sub/small", 10);
    auto total = duSize(root_);
    EXPECT_GE(total, 300 * 1024);
    EXPECT_EQ(total % 1024, 0);
    EXPECT_EQ(duSize(root_ + "/missing"), -1);

    auto measured = duMeasure(root_);
    EXPECT_EQ(measured.bytes, total);
    EXPECT_TRUE(measured.denied.empty());
    EXPECT_EQ(duMeasure(root_ + "/missing"), (DuMeasurement{-1, {}}));

    auto batch = duBatchMeasure({root_ + "/big", root_ + "/sub", root_ + "/missing", "-rf"}, 30);
    EXPECT_GE(batch.sizes.at(root_ + "/big"), 300 * 1024);
    EXPECT_GT(batch.sizes.at(root_ + "/sub"), 0);
    EXPECT_EQ(batch.sizes.at(root_ + "/missing"), -1);
    EXPECT_EQ(batch.sizes.at("-rf"), -1);  // a path, never an option
    EXPECT_EQ(duBatchSizes({}, 30).size(), 0u);
    EXPECT_EQ(duBatchMeasure({}, 30), DuBatch{});
}

TEST_F(TempTree, UnreadableFoldersAreNamed) {
    write("locked/inside", 100);
    write("open/inside", 100);
    fs::permissions(root_ + "/locked", fs::perms::none);
    std::vector<std::string> denied;
    if (geteuid() != 0) {
        denied = duMeasure(root_).denied;
        EXPECT_EQ(listingRefused(root_ + "/locked"), true);
    } else if (access("/usr/bin/setpriv", X_OK) == 0) {
        // Root reads everything, so du runs as nobody instead.
        fs::permissions(root_, fs::perms::all, fs::perm_options::add);
        auto r = runToolSplit("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups", "/usr/bin/du",
                                                   "-skx", root_},
                              30, false, ToolErrors::separate);
        denied = parseDuDenied(r.errLines);
    } else {
        GTEST_SKIP() << "running as root without setpriv: the captured du output covers this";
    }
    EXPECT_EQ(denied, (std::vector<std::string>{root_ + "/locked"}));
    EXPECT_EQ(listingRefused(root_ + "/open"), false);
}

TEST_F(TempTree, FoldersAndFileCounts) {
    write("a/one", 1);
    write("a/b/two", 1);
    write("a/b/c/three", 1);
    fs::create_symlink(root_ + "/a/one", root_ + "/a/link-to-file");
    fs::create_directory_symlink(root_ + "/a/b", root_ + "/a/link-to-folder");
    EXPECT_EQ(countFiles(root_ + "/a"), 3);
    EXPECT_EQ(countFiles(root_ + "/a/one"), 1);
    EXPECT_EQ(countFiles(root_ + "/a/link-to-file"), 1);  // links followed for the path itself
    EXPECT_EQ(countFiles(root_ + "/missing"), 0);

    EXPECT_TRUE(isDirectory(root_ + "/a"));
    EXPECT_TRUE(isDirectory(root_ + "/a/link-to-folder"));
    EXPECT_FALSE(isDirectory(root_ + "/a/one"));
    EXPECT_FALSE(isDirectory(root_ + "/missing"));

    EXPECT_EQ(listingRefused(root_ + "/a/one"), std::nullopt);
    EXPECT_EQ(listingRefused(root_ + "/missing"), std::nullopt);
    EXPECT_EQ(listingRefused(root_ + "/a"), false);
}

}  // namespace
}  // namespace orvane
