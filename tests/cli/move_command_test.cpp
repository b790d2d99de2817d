// orvane destinations, move and moves end to end: on the recorded Mac, killed at any moment and
// repaired, and as root onto an ext4 drive mounted under /mnt.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/platform/platform.hpp"
#include "tests/cli/run_orvane.hpp"

extern char** environ;

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::CommandCase;
using C = CommandCase;

TEST(MoveCommands, TheRecordedMacAndBadInput) {
    testing::TempDir scratch;
    auto o = testing::runOrvane(testing::kAlexReplay + "destinations --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    ASSERT_EQ(json["destinations"].size(), 1u);
    EXPECT_EQ(json["destinations"][0]["id"], "/Volumes/Archive");
    EXPECT_EQ(json["destinations"][0]["format"], "?");
    EXPECT_EQ(json["destinations"][0]["verdict"], "ok");

    const C cases[] = {
        {testing::kAlexReplay + "move /Users/alex/Downloads/Xcode_15.xip --to Archive", 1, C::out,
         "Would move /Users/alex/Downloads/Xcode_15.xip (11 MB, 1 file) to /Volumes/Archive/Offloaded/Xcode_15.xip, "
         "with a shortcut left at /Users/alex/Downloads/Xcode_15.xip.\n"},
        {testing::kAlexReplay + "move /Users/alex/Downloads/Xcode_15.xip --to Archive", 1, C::err,
         "orvane: Nothing was changed: this is a recorded Mac.\n"},
        {testing::kAlexReplay + "move /Users/alex/Downloads/Xcode_15.xip --to Elsewhere", 2, C::err,
         "orvane: No drive named Elsewhere is connected; orvane destinations lists those that are.\n"},
        {testing::kAlexReplay + "move /Users/alex/Music/Music --to Archive", 1, C::out,
         "Music.app's own library — relocate officially: Music › Settings › Files", C::contains},
        {testing::kAlexReplay + "move '/Users/Shared/Native Instruments' --to Archive", 1, C::out,
         "Native Instruments keeps its own record of where this lies; move it from Native Access instead: In Native "
         "Access:", C::contains},
        {testing::kAlexReplay + "move /Users/alex/Music --to Archive", 1, C::out,
         "/Users/alex/Music is a folder apps expect to find in its place, so it can't be moved.\n"},
        {"move {D}/missing --to {D}", 2, C::err, "orvane: There is nothing at {D}/missing.\n"},
        {"move {D}/a --to {D}/b", 1, C::out, "{D}/b is on the same drive as {D}/a: moving it there frees nothing.\n",
         C::whole, [](const testing::TempDir& d) { d.write("a", "x"), d.mkdir("b"); }},
    };
    testing::expectCommands(cases);
}

// Every file of a tree, by its path inside it.
std::map<std::string, std::string> contentsOf(const std::string& top) {
    std::map<std::string, std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(top))
        if (entry.is_regular_file()) out[fs::relative(entry.path(), top)] = readFile(entry.path()).value_or("?");
    return out;
}

pid_t spawnOrvane(const std::vector<std::string>& arguments) {
    std::vector<char*> argv = {const_cast<char*>(ORVANE_BINARY)};
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    posix_spawn(&pid, ORVANE_BINARY, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// A move killed at many moments, from before the copy to after the shortcut, each repaired as
// the next launch would: the data always reads back, in place or through its shortcut, and no
// journal entry is left.
TEST(MoveCommands, AKillAtAnyMomentIsRepairedWithNothingLost) {
    testing::TempDir home("/var/tmp");
    const auto shm = platform::mountOf("/dev/shm");
    if (!shm || shm->mountPoint == platform::mountOf(home.path())->mountPoint || ::access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "/dev/shm is not a second writable file system here";
    testing::TempDir drive("/dev/shm");
    const std::string ledger = home / "ledger";
    auto footage = [&](const std::string& round) {
        const std::string source = home.mkdir(round + "/Footage");
        for (int i = 0; i < 40; ++i)
            home.write(round + "/Footage/clip" + std::to_string(i), std::string(256 * 1024, static_cast<char>('a' + i % 26)));
        return source;
    };
    // How long a whole move takes here, so that the moments cover it whatever the build.
    const auto started = std::chrono::steady_clock::now();
    int status = 0;
    ::waitpid(spawnOrvane({"--ledger-dir", ledger, "move", footage("timing"), "--to", drive.path()}), &status, 0);
    ASSERT_EQ(status, 0);
    const auto whole = std::chrono::steady_clock::now() - started;
    constexpr int kRounds = 24;
    int moved = 0, untouched = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const std::string source = footage("round" + std::to_string(round));
        const auto before = contentsOf(source);
        const pid_t child = spawnOrvane({"--ledger-dir", ledger, "move", source, "--to", drive.path()});
        ASSERT_GT(child, 0);
        std::this_thread::sleep_for(whole * round / (kRounds - 4));
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);

        const auto repair = testing::runOrvane("--ledger-dir " + ledger + " repair", home.path());
        EXPECT_EQ(repair.status, 0) << repair.out << repair.err;
        EXPECT_EQ(contentsOf(source), before);
        EXPECT_EQ(readFile(ledger + "/moves-inflight.json").value_or(R"({"v":1,"data":[]})"), R"({"v":1,"data":[]})");
        (fs::is_symlink(source) ? moved : untouched)++;
    }
    // The moments spread over the whole move: some were killed before it ended, some after.
    EXPECT_GT(untouched, 0);
    EXPECT_GT(moved, 0);
}

// A drive a person would plug in: an ext4 image mounted under /mnt, found by its name.
TEST(MoveCommands, ToADriveByItsName) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount a drive image";
    testing::TempDir home("/var/tmp");
    const std::string name = "orvane-test-" + std::to_string(::getpid());
    const std::string mountPoint = "/mnt/" + name;
    const std::string image = home / "drive.img";
    const std::string make = "truncate -s 64M '" + image + "' && mkfs.ext4 -q '" + image + "' >/dev/null 2>&1 && mkdir -p '" +
                             mountPoint + "' && mount -o loop '" + image + "' '" + mountPoint + "' 2>/dev/null";
    if (std::system(make.c_str()) != 0) {
        ::rmdir(mountPoint.c_str());
        GTEST_SKIP() << "an ext4 image could not be mounted here (no loop device?)";
    }
    struct Unmount {
        std::string point;
        ~Unmount() {
            std::system(("umount '" + point + "'").c_str());
            ::rmdir(point.c_str());
        }
    } unmount{mountPoint};

    const std::string ledger = "--ledger-dir " + home / "ledger" + " ";
    auto o = testing::runOrvane(ledger + "destinations --json", home.path());
    ASSERT_EQ(o.status, 0) << o.err;
    bool listed = false;
    const auto listing = nlohmann::json::parse(o.out);
    for (const auto& row : listing["destinations"])
        if (row["id"] == mountPoint) listed = row["name"] == name && row["format"] == "ext4" && row["verdict"] == "ok";
    EXPECT_TRUE(listed) << o.out;

    const std::string source = home.write("Downloads/installer.dmg", std::string(2 * 1024 * 1024, 'd'));
    o = testing::runOrvane(ledger + "move " + source + " --to " + name + " --title Installer", home.path());
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(fs::read_symlink(source), mountPoint + "/Offloaded/installer.dmg");
    EXPECT_EQ(fs::file_size(source), 2u * 1024 * 1024);  // through the shortcut
    o = testing::runOrvane(ledger + "moves --json", home.path());
    const auto moves = nlohmann::json::parse(o.out);
    EXPECT_EQ(moves["moves"][0]["title"], "Installer");
    EXPECT_EQ(moves["missingDrives"], nlohmann::json::array());
}

}  // namespace
}  // namespace orvane
