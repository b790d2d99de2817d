// Kills a process in the middle of ledger writes, again and again, and checks after each kill
// that every file still decodes and that nothing an append had returned for is missing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <random>
#include <regex>
#include <set>
#include <thread>

#include "tests/ledger/ledger_fixture.hpp"

extern char** environ;

namespace orvane {
namespace {

using testing::LedgerFixture;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

class LedgerReliability : public LedgerFixture {};

struct Child {
    pid_t pid = -1;
    int out = -1;
};

Child spawnChild(const std::string& ledger, const std::string& prefix) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    std::string program = LEDGER_CRASH_CHILD;
    char* argv[] = {program.data(), const_cast<char*>(ledger.c_str()), const_cast<char*>(prefix.c_str()), nullptr};
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (rc != 0) {
        ::close(fds[0]);
        return {};
    }
    return {pid, fds[0]};
}

// Reads what is there within `wait`; false at the end of the stream.
bool readSome(int fd, std::string& into, std::chrono::milliseconds wait) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(wait.count())) <= 0) return true;
    char buffer[4096];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return false;
    into.append(buffer, static_cast<std::size_t>(n));
    return true;
}

TEST_F(LedgerReliability, KilledWritersNeverTearAFileNorLoseAReturnedAppend) {
    constexpr int kRounds = 10, kKillsPerRound = 25;  // a fresh ledger per round keeps the files small
    std::mt19937 random(std::random_device{}());
    const std::regex logLine(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] MOVED k\d+-\d+)");
    int kills = 0, killedMidRun = 0;
    for (int round = 0; round < kRounds; ++round) {
        const std::string ledger = root_ + "/round" + std::to_string(round);
        std::set<std::string> returnedMoves, returnedLines;
        for (int k = 0; k < kKillsPerRound; ++k, ++kills) {
            const std::string prefix = "k" + std::to_string(kills);
            Child child = spawnChild(ledger, prefix);
            ASSERT_GT(child.pid, 0);
            std::string reported;
            // Mostly once it is under way, sometimes while it is still starting.
            if (random() % 5 != 0) {
                const auto deadline = std::chrono::steady_clock::now() + 5s;
                while (reported.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline)
                    if (!readSome(child.out, reported, 50ms)) break;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
            ::kill(child.pid, SIGKILL);
            while (readSome(child.out, reported, 2000ms)) {
            }
            ::close(child.out);
            int status = 0;
            ::waitpid(child.pid, &status, 0);
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child ended by itself: " << status;
            if (!reported.empty()) ++killedMidRun;

            std::size_t start = 0;
            for (auto end = reported.find('\n'); end != std::string::npos; start = end + 1, end = reported.find('\n', start)) {
                const std::string line = reported.substr(start, end - start);
                (line[0] == 'm' ? returnedMoves : returnedLines).insert(line.substr(2));
            }

            if (auto bytes = readFile(ledger + "/moves.json")) {
                const auto moves = decodeVersioned<std::vector<MoveRecord>>(*bytes);
                ASSERT_TRUE(moves) << "moves.json torn after kill " << kills << ": " << bytes->substr(0, 200);
                std::set<std::string> onFile;
                for (const auto& m : *moves) onFile.insert(m.dst.substr(m.dst.rfind('/') + 1));
                for (const auto& name : returnedMoves) ASSERT_TRUE(onFile.count(name)) << name << " lost after kill " << kills;
            } else {
                ASSERT_TRUE(returnedMoves.empty());
            }
            if (auto bytes = readFile(ledger + "/moves-inflight.json")) {
                ASSERT_TRUE(decodeVersioned<std::vector<MoveRecord>>(*bytes)) << "journal torn after kill " << kills;
            }
            if (auto bytes = readFile(ledger + "/actions.log")) {
                ASSERT_TRUE(bytes->empty() || bytes->back() == '\n') << "a cut log line after kill " << kills;
                std::set<std::string> logged;
                std::size_t from = 0;
                for (auto end = bytes->find('\n'); end != std::string::npos; from = end + 1, end = bytes->find('\n', from)) {
                    const std::string line = bytes->substr(from, end - from);
                    ASSERT_TRUE(std::regex_match(line, logLine)) << line;
                    logged.insert(line.substr(line.rfind(' ') + 1));
                }
                for (const auto& name : returnedLines) ASSERT_TRUE(logged.count(name)) << name << " lost after kill " << kills;
            } else {
                ASSERT_TRUE(returnedLines.empty());
            }
        }
    }
    // Most kills must have landed while the child was writing, or the test proved little.
    EXPECT_GT(killedMidRun, kills / 2);
}

}  // namespace
}  // namespace orvane
