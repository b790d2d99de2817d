#include "core/storage/zombie_space.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <sys/wait.h>
#include <unistd.h>

#include "core/common/path.hpp"
#include "tests/storage/storage_fixtures.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::capturedLines;
using testing::FakeMac;
using testing::printed;

using PerApp = std::map<std::string, std::int64_t>;

TEST(ZombieSpace, ParsesFieldOutput) {
    const std::pair<std::string, PerApp> captures[] = {
        // Dropbox and mds_stores hold the same deleted file: it counts once, for Dropbox.
        {"field-output-one-inode-two-processes-HANDMADE.txt",
         {{"Dropbox", 1048576}, {"mds_stores", 4096}, {"Safari", 2500000000}}},
        {"lsof-F-fd-LINUX-ubuntu22.04-truncated-fd-asterisk-lsoforg311.txt", {}},
        {"lsof-Fp-LINUX-el7-lsof4.87-pid-only-lsoforg103.txt", {}},
        {"lsof-Fp-LINUX-fedora-lsof4.93.2-f-always-selected-lsoforg103.txt", {}},
    };
    for (const auto& [file, perApp] : captures) {
        const auto lines = capturedLines("lsof", file);
        ASSERT_FALSE(lines.empty()) << file;
        EXPECT_EQ(parseZombieSpace(lines), perApp) << file;
    }

    const std::pair<std::vector<std::string>, PerApp> cases[] = {
        // A size belongs to its own file: a new process or command in between drops it.
        {{"p1", "cA", "s100", "p2", "cB", "i7"}, {}},
        {{"p1", "cA", "s100", "cB", "i7"}, {}},
        {{"p1", "cA", "s-5", "i7", "s12x", "i8", "s", "i9", "s0x10", "i10"}, {}},
        {{"p1", "cA", "s1152921504606846977", "i7"}, {}},  // past 2^60: no byte count
        {{"p1", "cA", "s10", "i7", "", "x", "s20", "i8", "s30", "i7"}, {{"A", 30}}},
        {{"p1", "s10", "i7"}, {{"", 10}}},
    };
    for (const auto& [lines, perApp] : cases) EXPECT_EQ(parseZombieSpace(lines), perApp) << lines.size();
}

TEST(ZombieSpace, MeasureRunsTheFactsLsof) {
    FakeMac mac;
    const std::vector<std::string> argv = {kMacLsofTool, "-n", "-P", "+L1", "-Fcsi"};
    mac.tools[argv] = printed({"p1", "cA", "s10", "i7", "p2", "cB", "s20", "i8"});
    EXPECT_EQ(measureZombieSpace(12, mac.facts()), (ZombieSpace{{{"A", 10}, {"B", 20}}, 30, false}));
    EXPECT_EQ(mac.runs.front(),
              (std::vector<std::string>{kMacLsofTool, "-n", "-P", "+L1", "-Fcsi", "12", "discarded"}));

    mac.tools[argv].timedOut = true;
    EXPECT_EQ(measureZombieSpace(12, mac.facts()), (ZombieSpace{{}, 0, true}));
}

// A child process holds a file open after it is deleted; the real lsof must find its bytes.
TEST(ZombieSpace, FindsADeletedFileAChildHoldsOpen) {
    if (!fileExists(kHostLsofTool))
        GTEST_SKIP() << kHostLsofTool << " is not installed (apt-get install lsof), so nothing can list open files.";
    testing::TempDir temp;
    const std::string path = temp / "held";
    temp.write("held", std::string(12345, 'x'));
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
#ifdef __linux__
        ::prctl(PR_SET_NAME, "ov-zombie-hold");
#endif
        const int fd = ::open(path.c_str(), O_RDONLY);
        const char ok = fd >= 0 ? '1' : '0';
        (void)!::write(ready[1], &ok, 1);
        for (;;) ::pause();
    }
    ::close(ready[1]);
    char ok = '0';
    (void)!::read(ready[0], &ok, 1);
    ::close(ready[0]);
    ::unlink(path.c_str());

    const auto space = measureZombieSpace(30, Facts::real());
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);

    ASSERT_EQ(ok, '1');
    ASSERT_FALSE(space.timedOut);
    EXPECT_GE(space.total, 12345);
#ifdef __linux__
    // Named apart from this test program, so no other file it holds can be mistaken for this one.
    ASSERT_TRUE(space.perApp.contains("ov-zombie-hold"));
    EXPECT_EQ(space.perApp.at("ov-zombie-hold"), 12345);
#endif
}

}  // namespace
}  // namespace orvane
