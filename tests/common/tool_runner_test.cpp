// The runner against real programs: floods, stubborn tools, grandchildren that keep the pipe,
// bytes that are not text.
#include "core/common/tool_runner.hpp"
#include "tests/support/temp_dir.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>

namespace orvane {
namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

ToolResult sh(const std::string& script, double timeout = 10, ToolErrors errors = ToolErrors::separate,
              bool nul = false) {
    return runToolSplit("/bin/sh", {"-c", script}, timeout, nul, errors);
}

TEST(ToolRunner, OrdinaryRuns) {
    auto quick = runToolSplit("/bin/true", {}, 10, false, ToolErrors::discarded);
    EXPECT_EQ(quick, (ToolResult{{}, {}, false, 0}));

    EXPECT_EQ(sh("exit 3").status, 3);
    EXPECT_EQ(sh("kill -9 $$").status, SIGKILL);  // the signal that ended it
    EXPECT_EQ(sh("printf 'a\\n\\nb\\n'").lines, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(sh("printf 'no newline'").lines, (std::vector<std::string>{"no newline"}));
    EXPECT_EQ(runToolSplit("/bin/echo", {"-n", "it's \"quoted\" $HOME; `x`"}, 10, false, ToolErrors::discarded).lines,
              (std::vector<std::string>{"it's \"quoted\" $HOME; `x`"}));  // no shell in between

    // Standard input is the null device, so a tool that reads it ends at once.
    auto cat = runToolSplit("/bin/cat", {}, 10, false, ToolErrors::discarded);
    EXPECT_EQ(cat.status, 0);
    EXPECT_FALSE(cat.timedOut);

    setenv("ORVANE_RUNNER_TEST", "inherited", 1);
    auto env = runToolSplit("/usr/bin/env", {}, 10, false, ToolErrors::discarded).lines;
    EXPECT_NE(std::find(env.begin(), env.end(), "ORVANE_RUNNER_TEST=inherited"), env.end());
    unsetenv("ORVANE_RUNNER_TEST");
}

TEST(ToolRunner, StandardErrorThreeWays) {
    const std::string script = "echo out; echo err >&2";
    auto discarded = sh(script, 10, ToolErrors::discarded);
    EXPECT_EQ(discarded.lines, (std::vector<std::string>{"out"}));
    EXPECT_TRUE(discarded.errLines.empty());

    auto merged = sh(script, 10, ToolErrors::merged);
    EXPECT_EQ(merged.lines, (std::vector<std::string>{"out", "err"}));
    EXPECT_TRUE(merged.errLines.empty());

    auto separate = sh(script, 10, ToolErrors::separate);
    EXPECT_EQ(separate.lines, (std::vector<std::string>{"out"}));
    EXPECT_EQ(separate.errLines, (std::vector<std::string>{"err"}));

}

TEST(ToolRunner, FloodsOnBothPipesDoNotDeadlock) {
    auto million = runToolSplit("/usr/bin/seq", {"1", "1000000"}, 60, false, ToolErrors::discarded);
    ASSERT_EQ(million.lines.size(), 1000000u);
    EXPECT_EQ(million.lines.front(), "1");
    EXPECT_EQ(million.lines.back(), "1000000");
    EXPECT_EQ(million.status, 0);

    // Errors first: a runner that read only one pipe at a time would hang here.
    auto both = sh("seq 1 300000 >&2; seq 1 300000", 60);
    EXPECT_EQ(both.lines.size(), 300000u);
    EXPECT_EQ(both.errLines.size(), 300000u);
    EXPECT_FALSE(both.timedOut);
}

TEST(ToolRunner, TextAndRecords) {
    // One invalid byte anywhere loses the whole output, but the status stands.
    auto invalid = sh("printf 'fine\\n\\377\\nfine\\n'; printf 'ok\\n' >&2; exit 4");
    EXPECT_TRUE(invalid.lines.empty());
    EXPECT_EQ(invalid.errLines, (std::vector<std::string>{"ok"}));
    EXPECT_EQ(invalid.status, 4);
    EXPECT_TRUE(sh("printf 'x\\n' ; printf '\\300\\200' >&2").errLines.empty());

    auto records = sh("printf 'a\\nb\\0\\0c d\\0'", 10, ToolErrors::discarded, true);
    EXPECT_EQ(records.lines, (std::vector<std::string>{"a\nb", "c d"}));
    // A record is a file name: one that is not UTF-8 goes alone, counted, and the others stay.
    auto named = sh("printf 'a\\0bad\\377\\0\\300\\200\\0c\\0'", 10, ToolErrors::discarded, true);
    EXPECT_EQ(named.lines, (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(named.skippedRecords, 2u);
    EXPECT_EQ(invalid.skippedRecords, 0u);  // lines keep their all-or-nothing rule

    // "\r\n" is one character, so it ends no line.
    EXPECT_EQ(sh("printf 'a\\r\\nb\\nc\\r'").lines, (std::vector<std::string>{"a\r\nb", "c\r"}));
    EXPECT_EQ(splitToolOutput("\n\n", false), std::vector<std::string>{});
    EXPECT_EQ(splitToolOutput("x\r\n", false), (std::vector<std::string>{"x\r\n"}));
    EXPECT_EQ(splitToolOutput(std::string("\0a\0", 3), true), (std::vector<std::string>{"a"}));

    testing::TempDir dir;
    std::ofstream(dir / "line\nfeed") << "x";
    auto found = runToolSplit("/usr/bin/find", {dir.path(), "-type", "f", "-print0"}, 10, true, ToolErrors::discarded);
    EXPECT_EQ(found.lines, (std::vector<std::string>{dir / "line\nfeed"}));
}

TEST(ToolRunner, ToolsThatCannotStart) {
    const ToolResult none{{}, {}, false, -1};
    EXPECT_EQ(runToolSplit("/nonexistent/tool", {}, 10, false, ToolErrors::separate), none);
    EXPECT_EQ(runToolSplit("true", {}, 10, false, ToolErrors::separate), none);  // no PATH search
    EXPECT_EQ(runToolSplit("", {}, 10, false, ToolErrors::separate), none);
    EXPECT_EQ(runToolSplit("/etc/hostname", {}, 10, false, ToolErrors::separate), none);  // not executable
    EXPECT_EQ(runStatus("/nonexistent/tool", {}), -1);
    EXPECT_EQ(runStatus("/bin/false", {}), 1);
    EXPECT_EQ(runStatus("/bin/sh", {"-c", "echo noise; echo noise >&2; exit 7"}), 7);
}

TEST(ToolRunner, DeadlineStopsATool) {
    // It ends at SIGTERM, and what it printed before still counts.
    auto start = Clock::now();
    auto stopped = sh("echo early; exec sleep 20", 0.3);
    EXPECT_TRUE(stopped.timedOut);
    EXPECT_EQ(stopped.status, SIGTERM);
    EXPECT_EQ(stopped.lines, (std::vector<std::string>{"early"}));
    EXPECT_LT(secondsSince(start), 2.5);

    EXPECT_FALSE(runToolSplit("/bin/true", {}, 5, false, ToolErrors::discarded).timedOut);
}

TEST(ToolRunner, SigtermIgnoredMeansSigkillThreeSecondsLater) {
    auto start = Clock::now();
    auto stubborn = sh("trap '' TERM; echo started; exec sleep 30", 0.2);
    const double took = secondsSince(start);
    EXPECT_TRUE(stubborn.timedOut);
    EXPECT_EQ(stubborn.status, SIGKILL);
    EXPECT_EQ(stubborn.lines, (std::vector<std::string>{"started"}));
    EXPECT_GE(took, 3.1);
    EXPECT_LT(took, 4.6);
}

TEST(ToolRunner, GrandchildHoldingThePipeIsGivenUpOn) {
    auto start = Clock::now();
    auto held = sh("echo lost; sleep 8 & exit 0", 0.2);
    const double took = secondsSince(start);
    EXPECT_EQ(held, (ToolResult{{}, {}, true, -1}));
    EXPECT_GE(took, 4.6);
    EXPECT_LT(took, 6.5);
}

TEST(ToolRunner, NoDescriptorLeaksIntoATool) {
    // A descriptor opened without close-on-exec, as a careless library would.
    int leaky = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaky, 0);
    int high = ::dup2(leaky, 77);
    ASSERT_EQ(high, 77);
    auto fds = runToolSplit("/bin/ls", {"/proc/self/fd"}, 10, false, ToolErrors::discarded).lines;
    ::close(leaky);
    ::close(high);
    ASSERT_FALSE(fds.empty());
    for (const auto& fd : fds) EXPECT_LE(std::stoi(fd), 3) << "descriptor " << fd << " leaked";
}

TEST(ToolRunner, ManyCallersAtOnce) {
    std::vector<std::future<ToolResult>> runs;
    for (int i = 0; i < 16; ++i)
        runs.push_back(std::async(std::launch::async, [i] {
            return runToolSplit("/bin/sh", {"-c", "seq 1 " + std::to_string(1000 * (i + 1))}, 30, false,
                                ToolErrors::separate);
        }));
    for (int i = 0; i < 16; ++i) {
        auto r = runs[static_cast<std::size_t>(i)].get();
        EXPECT_EQ(r.lines.size(), static_cast<std::size_t>(1000 * (i + 1)));
        EXPECT_EQ(r.status, 0);
    }
}

}  // namespace
}  // namespace orvane
