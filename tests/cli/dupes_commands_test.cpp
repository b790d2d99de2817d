// orvane dupes and dupes merge end to end: on the recorded Mac, on this disk, and as root on a
// Btrfs image, which shares extents between files as APFS clones do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "core/duplicates/private_bytes.hpp"
#include "core/platform/platform.hpp"
#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;

TEST(DupesCommands, TheRecordedMacAndBadPaths) {
    testing::TempDir scratch;
    auto o = testing::runOrvane(testing::kAlexReplay + "dupes /Users/alex/Documents /Users/alex/Downloads --json",
                                scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    ASSERT_EQ(json["groups"].size(), 1u);
    EXPECT_EQ(json["groups"][0]["keeper"], "/Users/alex/Documents/Taxes/Return 2023.pdf");
    EXPECT_EQ(json["groups"][0]["copies"], nlohmann::json::array({"/Users/alex/Downloads/Return 2023 (1).pdf"}));
    EXPECT_EQ(json["groups"][0]["reason"],
              "Kept: filed in your own folders; the others carry copy-suffix names; the others sit in transit "
              "locations.");
    EXPECT_EQ(json["claim"], (nlohmann::json{{"copies", 1}, {"bytes", 2410}}));

    const std::string plan =
        "Merging 1 copy would give back about 2 KB. Every copy stays in place.\n"
        "Would merge /Users/alex/Downloads/Return 2023 (1).pdf into /Users/alex/Documents/Taxes/Return 2023.pdf.\n";
    const C cases[] = {
        {testing::kAlexReplay + "dupes merge /Users/alex/Documents /Users/alex/Downloads --yes", 1, C::out, plan},
        {testing::kAlexReplay + "dupes merge /Users/alex --yes", 1, C::err,
         "orvane: Nothing was changed: this is a recorded Mac.\n"},
        {"dupes {D}/missing", 2, C::err, "orvane: There is nothing at {D}/missing.\n"},
        {"dupes {D}/pipe", 2, C::err, "orvane: {D}/pipe is neither a folder nor a regular file.\n", C::whole,
         [](const testing::TempDir& d) { ::mkfifo((d / "pipe").c_str(), 0600); }},
        {"dupes merge {D}", 2, C::out, "Nothing was merged: confirm on a terminal, or give --yes.", C::contains,
         [](const testing::TempDir& d) { d.write("a", "same"), d.write("b", "same"); }},
        {"dupes merge {D} --yes", 0, C::out, "No duplicates found: nothing to merge.\n"},
    };
    testing::expectCommands(cases);
}

// Where the file system cannot share storage (ext4, tmpfs), the merge says so and changes nothing.
TEST(DupesCommands, RefusesWhereStorageCannotBeShared) {
    testing::TempDir dir("/var/tmp");
    const auto mount = platform::mountOf(dir.path());
    if (!mount || (mount->fileSystemType != "ext4" && mount->fileSystemType != "tmpfs"))
        GTEST_SKIP() << dir.path() << " is not on ext4 or tmpfs here";
    const std::string keeper = dir.write("data/a.bin", std::string(70000, 'z'));
    const std::string copy = dir.write("data/b.bin", std::string(70000, 'z'));
    const auto before = platform::lstatFacts(copy);
    const auto o = testing::runOrvane("--ledger-dir " + dir / "ledger" + " dupes merge " + dir / "data" + " --yes",
                                      dir.path());
    EXPECT_EQ(o.status, 1) << o.out << o.err;
    EXPECT_NE(o.out.find("Nothing was merged: the file system here (" + mount->fileSystemType +
                         ") cannot share storage between files. Nothing was changed.\n"),
              std::string::npos)
        << o.out;
    // Comparing the copy reads it, which may move its access time into the next second; nothing
    // else of it may change.
    auto after = platform::lstatFacts(copy);
    ASSERT_TRUE(after && before);
    after->accessedSeconds = before->accessedSeconds;
    EXPECT_EQ(after, before);
    EXPECT_EQ(platform::lstatFacts(keeper)->size, 70000);
}

// A Btrfs image on a loop device, mounted for the test and taken away after it.
class BtrfsImage {
public:
    explicit BtrfsImage(const testing::TempDir& dir) : image_(dir / "btrfs.img"), mountPoint_(dir / "mnt") {
        const std::string command = "truncate -s 200M '" + image_ + "' && mkfs.btrfs -q '" + image_ +
                                    "' >/dev/null 2>&1 && mkdir -p '" + mountPoint_ + "' && mount -o loop '" + image_ +
                                    "' '" + mountPoint_ + "' 2>/dev/null";
        mounted_ = std::system(command.c_str()) == 0;
    }
    ~BtrfsImage() {
        if (mounted_) std::system(("umount '" + mountPoint_ + "'").c_str());
    }
    bool mounted() const { return mounted_; }
    const std::string& path() const { return mountPoint_; }

private:
    std::string image_, mountPoint_;
    bool mounted_ = false;
};

TEST(DupesCommands, MergesOnBtrfsWithEveryCopyInPlace) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount a Btrfs image";
    if (std::system("command -v mkfs.btrfs >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "mkfs.btrfs is missing: install btrfs-progs (scripts/test does as root)";
    testing::TempDir dir("/var/tmp");
    BtrfsImage btrfs(dir);
    if (!btrfs.mounted()) GTEST_SKIP() << "a Btrfs image could not be mounted here (no loop device?)";
    // Written apart, not copied: cp would share the storage already.
    const std::string content = std::string(5 * 1024 * 1024, 'm') + "tail";
    const std::string keeper = btrfs.path() + "/Photos/trip.mov";
    const std::string copies[] = {btrfs.path() + "/trip copy.mov", btrfs.path() + "/old/trip (2).mov"};
    for (const auto& path : {keeper, copies[0], copies[1]}) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }
    ASSERT_EQ(::chown(copies[1].c_str(), 1000, 1000), 0);
    ASSERT_EQ(::chmod(copies[1].c_str(), 0640), 0);
    std::vector<platform::FileFacts> before;
    for (const auto& copy : copies) before.push_back(*platform::lstatFacts(copy));

    const std::string ledger = "--ledger-dir " + dir / "ledger" + " ";
    auto o = testing::runOrvane(ledger + "dupes merge " + btrfs.path() + " --yes", dir.path());
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_NE(o.out.find("Given back: 10.5 MB, 2 copies merged into 1 original."), std::string::npos) << o.out;

    o = testing::runOrvane(ledger + "dupes " + btrfs.path() + " --json", dir.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["claim"], (nlohmann::json{{"copies", 0}, {"bytes", 0}}));
    for (std::size_t i = 0; i < 2; ++i) {
        auto after = *platform::lstatFacts(copies[i]);
        after.accessedSeconds = before[i].accessedSeconds;  // reading it for the proof may touch this one
        EXPECT_EQ(after, before[i]) << copies[i];  // inode, owner, mode, modification time
        EXPECT_LT(privateBytesOfFile(copies[i]).value_or(-1), 64 * 1024);
    }
    EXPECT_EQ(readFile(dir / "ledger/swap-inflight.json"), R"({"v":1,"data":[]})");
    o = testing::runOrvane(ledger + "history", dir.path());
    EXPECT_NE(o.out.find("DEDUPE " + copies[1] + " now shares storage with " + keeper), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("MERGED 2 duplicate copies into 1 original — 10.5 MB returned."), std::string::npos);
}

}  // namespace
}  // namespace orvane
