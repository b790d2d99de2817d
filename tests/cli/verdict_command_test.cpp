#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/cli/run_orvane.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

const std::string kProtected =
    "refused — protected location — a system root, a mount root, your home folder or an ancestor of it\n";
const std::string kViaShortcut =
    "refused — the path leads through a shortcut, so the real data lives somewhere else — usually an external "
    "drive\n";
const std::string kProjectItself =
    "refused — this is a project you're building, not spare space — Velloran Orvane doesn't delete source trees. "
    "Its rebuildable parts (build folders, venvs, node_modules) are offered separately, and they are where the "
    "space actually is.\n";

class VerdictCommand : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-verdictcli-XXXXXX";
        dir_ = fs::canonical(mkdtemp(pattern)).string();
        home_ = dir_ + "/home";
        for (auto f : {"/home/src/app/package.json", "/home/src/app/index.js", "/home/code/tools/cli/Cargo.toml",
                       "/home/old/notes.txt"}) {
            fs::create_directories(fs::path(dir_ + f).parent_path());
            std::ofstream(dir_ + f) << "x";
        }
        fs::create_directory_symlink(home_ + "/old", home_ + "/shortcut");
        if (const char* saved = std::getenv("HOME")) saved_ = saved;
        ::setenv("HOME", home_.c_str(), 1);  // the child inherits it
    }
    void TearDown() override {
        ::setenv("HOME", saved_.c_str(), 1);
        fs::remove_all(dir_);
    }
    std::string dir_, home_, saved_;
};

TEST_F(VerdictCommand, RefusesEachWithItsSentence) {
    auto out = runOrvane("verdict " + home_ + " / " + home_ + "/shortcut " + home_ + "/shortcut/notes.txt " + home_ +
                             "/src/app " + home_ + "/code " + home_ + "/old",
                         dir_);
    EXPECT_EQ(out.status, 1) << out.err;
    EXPECT_EQ(out.out, home_ + ": " + kProtected + "/: " + kProtected + home_ + "/shortcut: " + kViaShortcut + home_ +
                           "/shortcut/notes.txt: " + kViaShortcut + home_ + "/src/app: " + kProjectItself + home_ +
                           "/code: refused — it holds a project you're building (cli), and Velloran Orvane doesn't "
                           "delete source trees. Their rebuildable parts are offered separately, and that is where "
                           "the space actually is.\n" +
                           home_ + "/old: trash\n");
    EXPECT_EQ(out.err, "");
}

TEST_F(VerdictCommand, MountPointIsRefused) {
    // /proc is a mount point on every Linux system, but it lies directly under "/"; a folder of its own
    // two levels down is found where one is mounted.
    std::string mountPoint;
    for (std::string candidate : {"/dev/shm", "/dev/pts", "/proc/sys", "/sys/fs/cgroup", "/run/lock", "/dev/mqueue"}) {
        std::ifstream in("/proc/self/mountinfo");
        for (std::string line; std::getline(in, line);)
            if (line.find(" " + candidate + " ") != std::string::npos) mountPoint = candidate;
        if (!mountPoint.empty()) break;
    }
    if (mountPoint.empty()) GTEST_SKIP() << "no mount point two levels deep here";
    auto out = runOrvane("verdict " + mountPoint, dir_);
    EXPECT_EQ(out.status, 1);
    EXPECT_EQ(out.out, mountPoint + ": " + kProtected);
}

TEST_F(VerdictCommand, AllowedPathsExitZero) {
    auto trash = runOrvane("verdict " + home_ + "/old " + home_ + "/old/notes.txt", dir_);
    EXPECT_EQ(trash.status, 0);
    EXPECT_EQ(trash.out, home_ + "/old: trash\n" + home_ + "/old/notes.txt: trash\n");
    auto permanently = runOrvane("verdict --permanently " + home_ + "/old", dir_);
    EXPECT_EQ(permanently.status, 0);
    EXPECT_EQ(permanently.out, home_ + "/old: remove permanently\n");

    const std::string relative = "cd " + home_ + " && " + std::string(ORVANE_BINARY) + " verdict old src/app/../app > " +
                                 dir_ + "/rel";
    EXPECT_EQ(std::system(relative.c_str()) >> 8, 1);  // the second is a project
    EXPECT_EQ(orvane::readFile(dir_ + "/rel").value_or(""),
              home_ + "/old: trash\n" + home_ + "/src/app: " + kProjectItself);
}

TEST_F(VerdictCommand, JSON) {
    auto out = runOrvane("verdict --json " + home_ + "/old " + home_ + "/shortcut", dir_);
    EXPECT_EQ(out.status, 1);
    auto parsed = nlohmann::json::parse(out.out);
    EXPECT_EQ(parsed["allowed"], false);
    ASSERT_EQ(parsed["paths"].size(), 2u);
    EXPECT_EQ(parsed["paths"][0]["path"], home_ + "/old");
    EXPECT_EQ(parsed["paths"][0]["verdict"], "trash");
    EXPECT_TRUE(parsed["paths"][0]["reason"].is_null());
    EXPECT_TRUE(parsed["paths"][0]["blocker"].is_null());
    EXPECT_EQ(parsed["paths"][1]["verdict"], "refuse");
    EXPECT_EQ(parsed["paths"][1]["reason"],
              "the path leads through a shortcut, so the real data lives somewhere else — usually an external drive");

    auto permanently = runOrvane("verdict --json --permanently " + home_ + "/old", dir_);
    EXPECT_EQ(permanently.status, 0);
    EXPECT_EQ(nlohmann::json::parse(permanently.out)["paths"][0]["verdict"], "removePermanently");
}

TEST_F(VerdictCommand, Usage) {
    auto none = runOrvane("verdict", dir_);
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(none.err.starts_with("orvane: ")) << none.err;
    auto help = runOrvane("verdict --help", dir_);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--permanently"), std::string::npos);
}

TEST_F(VerdictCommand, AProtectionListThatCannotBeReadRefusesEveryPath) {
    const std::string ledger = dir_ + "/ledger", list = ledger + "/protect-list.json";
    const std::string notRegular = " is not a regular file; it is left as it is.\n";
    const std::string undecodable = " is damaged or from a newer release; it is left as it is.\n";
    struct Case {
        std::function<void()> make;
        std::string problem;  // what follows the list's path on stderr
    } cases[] = {
        {[&] { ::mkfifo(list.c_str(), 0600); }, notRegular},
        {[&] { fs::create_directory(list); }, notRegular},
        {[&] { std::ofstream(list) << "{"; }, undecodable},
        {[&] { std::ofstream(list) << R"({"version":2,"entries":[]})"; }, undecodable},
        // Cut to 32 bits this would read as 1, an old list, and be overwritten.
        {[&] { std::ofstream(list) << R"({"version":4294967297,"entries":[]})"; }, undecodable},
        {[&] {
             std::ofstream(list) << "{";
             fs::resize_file(list, 4 * 1024 * 1024 + 1);
         },
         " is too large; it is left as it is.\n"},
    };
    const std::string refusal = home_ + "/old: refused — Velloran Orvane cannot read your protection list at " + list +
                                ", so it refuses to clear anything until the list is readable.\n";
    for (const auto& c : cases) {
        fs::remove_all(ledger);
        fs::create_directories(ledger);
        c.make();
        const auto before = fs::status(list).type();
        auto plain = runOrvane("--ledger-dir " + ledger + " verdict " + home_ + "/old", dir_);
        EXPECT_EQ(plain.status, 2);
        EXPECT_EQ(plain.out, refusal);
        EXPECT_EQ(plain.err, "orvane: The protection list at " + list + c.problem);
        auto json = nlohmann::json::parse(runOrvane("--ledger-dir " + ledger + " verdict --json " + home_ + "/old", dir_).out);
        EXPECT_EQ(json["allowed"], false);
        EXPECT_EQ(json["paths"][0]["verdict"], "refuse");
        // Nor is the list replaced by one that would forget what it held.
        EXPECT_EQ(runOrvane("--ledger-dir " + ledger + " protect add " + home_ + "/old", dir_).status, 2);
        EXPECT_EQ(fs::status(list).type(), before);
    }
}

}  // namespace
