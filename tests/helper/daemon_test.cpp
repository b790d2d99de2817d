// The daemon as it runs: a real process on a real socket, real clients, real callers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/privileged/wire.hpp"
#include "helper/listener.hpp"
#include "tests/support/daemon.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::Daemon;
using orvane::wire::Exchange;

std::string selfPath() { return fs::read_symlink("/proc/self/exe").string(); }


struct Outcome {
    int status = -1;
    std::string out;
};

// Runs the real front end, optionally as another user.
Outcome orvane(const std::vector<std::string>& args, const std::string& dir, std::optional<uid_t> as = std::nullopt) {
    const std::string outPath = dir + "/client.out";
    pid_t pid = ::fork();
    if (pid == 0) {
        int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        ::dup2(out, 1);
        if (as) {
            if (::setgid(*as) != 0 || ::setuid(*as) != 0) ::_exit(126);
        }
        std::vector<std::string> all = {ORVANE_BINARY};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int raw = 0;
    ::waitpid(pid, &raw, 0);
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, orvane::readFile(outPath).value_or("")};
}

class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "the daemon's tests run as root (CI does); skipped here";
        fs::permissions(dir_, fs::perms::all);  // other users' clients write their output here
    }
    // The front end asking `daemon` to perform `request`, as `as`.
    Outcome perform(const Daemon& daemon, const std::string& request, std::optional<uid_t> as = std::nullopt) {
        return orvane({"helper", "perform", request, "--socket", daemon.socket()}, dir_, as);
    }
    orvane::testing::TempDir temp_;
    std::string dir_ = temp_.path();
};

// -1 when nobody listens there.
int connectTo(const std::string& socketPath) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, socketPath.c_str());
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::vector<std::string> logLines(const std::string& path) {
    std::vector<std::string> out;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) out.push_back(line.substr(line.find("] ") + 2));
    return out;
}

TEST_F(DaemonTest, EndToEndThroughTheFrontEnd) {
    Daemon daemon(dir_, "main", {ORVANE_BINARY});
    ASSERT_TRUE(fs::exists(daemon.socket()));
    struct stat st{};
    ASSERT_EQ(::stat(daemon.socket().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0666u);

    auto version = orvane({"helper", "version", "--socket", daemon.socket()}, dir_);
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "6\n");
    auto status = orvane({"helper", "status", "--socket", daemon.socket()}, dir_);
    EXPECT_EQ(status.status, 0);
    EXPECT_NE(status.out.find("Decision: current, privileged steps go through the helper."), std::string::npos)
        << status.out;

    temp_.write("doomed");
    auto removed = perform(daemon, R"({"removePath":{"_0":")" + dir_ + R"(/doomed"}})");
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(removed.out, "");
    EXPECT_FALSE(fs::exists(dir_ + "/doomed"));

    temp_.write("real/kept");
    fs::create_directory_symlink(dir_ + "/real", dir_ + "/link");
    auto refused = perform(daemon, R"({"removePath":{"_0":")" + dir_ + R"(/link/kept"}})");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "pathTraversesSymlink\n");
    EXPECT_TRUE(fs::exists(dir_ + "/real/kept"));

    EXPECT_EQ(logLines(daemon.log()).size(), 2u);  // what each record says is the request road's, tested there

    EXPECT_EQ(orvane({"helper", "version", "--socket", dir_ + "/nobody-here.sock"}, dir_).status, 2);
}

TEST_F(DaemonTest, TheRootScanReachesTheCallerThroughItsOwnFile) {
    Daemon daemon(dir_, "scan", {ORVANE_BINARY});
    fs::resize_file(temp_.write("scanned/big.bin"), 11 * 1024 * 1024);  // sparse, above the scan's threshold
    auto scan = orvane({"scan", dir_ + "/scanned", "--admin", "--json", "--socket", daemon.socket()}, dir_);
    ASSERT_EQ(scan.status, 0);
    auto dump = nlohmann::json::parse(scan.out);
    EXPECT_EQ(dump["privilege"], "Administrator");
    ASSERT_EQ(dump["items"].size(), 1u);
    EXPECT_EQ(dump["items"][0]["id"], dir_ + "/scanned/big.bin");
    EXPECT_TRUE(logLines(daemon.log()).front().starts_with("OK privilegedScan(kind: \"folder\", root: \"" + dir_ +
                                                            "/scanned\""));
    // The private folder for the result is gone again.
    for (const auto& entry : fs::directory_iterator(orvane::home()))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".orvane-scan-")) << entry.path();
}

TEST_F(DaemonTest, TheCallerIsWhoTheKernelSays) {
    Daemon daemon(dir_, "uid", {ORVANE_BINARY});
    // A file of another user, asked for by "nobody": refused by ownership, whatever the request says.
    ASSERT_EQ(::chown(temp_.write("theirs").c_str(), 4242, 4242), 0);
    auto asNobody = perform(daemon, R"({"removePath":{"_0":")" + dir_ + R"(/theirs"}})", 65534);
    EXPECT_EQ(asNobody.status, 1);
    EXPECT_EQ(asNobody.out, "pathNotAllowed\n");
    EXPECT_TRUE(fs::exists(dir_ + "/theirs"));
    auto chownToRoot =
        perform(daemon, R"({"moveAside":{"path":")" + dir_ + R"(/theirs","to":")" + dir_ + R"(/mine","chownTo":0}})", 65534);
    EXPECT_EQ(chownToRoot.out, "pathNotAllowed\n");
    EXPECT_EQ(logLines(daemon.log()).front(), "REFUSED pathNotAllowed — removePath(\"" + dir_ + "/theirs\")");
}

TEST_F(DaemonTest, APeerThatIsNotAnAllowedClientGetsNothing) {
    Daemon daemon(dir_, "strict", {ORVANE_BINARY});
    orvane::wire::HelperConnection connection(daemon.socket());
    ASSERT_TRUE(connection.connected());
    Exchange answer = connection.ask(orvane::wire::kVersion);
    EXPECT_TRUE(std::holds_alternative<orvane::wire::NoAnswer>(answer));
    EXPECT_FALSE(fs::exists(daemon.log()));  // no log line for a refused peer
}

TEST_F(DaemonTest, BadFramesEndOnlyTheirConnection) {
    Daemon daemon(dir_, "frames", {ORVANE_BINARY, selfPath()});
    auto rawConnection = [&] {
        int fd = connectTo(daemon.socket());
        EXPECT_GE(fd, 0);
        return fd;
    };
    auto closedWithoutReply = [](int fd) {
        char byte;
        ssize_t n = ::recv(fd, &byte, 1, 0);
        ::close(fd);
        return n == 0;
    };
    // Larger than 1 MiB: announced, never read.
    int big = rawConnection();
    const unsigned char header[4] = {0x00, 0x10, 0x00, 0x01};
    ASSERT_EQ(::send(big, header, 4, MSG_NOSIGNAL), 4);
    EXPECT_TRUE(closedWithoutReply(big));
    // An unknown method.
    int odd = rawConnection();
    orvane::wire::writeFrame(odd, "Xhello");
    EXPECT_TRUE(closedWithoutReply(odd));
    // A truncated frame.
    int cut = rawConnection();
    const unsigned char partial[6] = {0x00, 0x00, 0x00, 0x20, 'P', '{'};
    ASSERT_EQ(::send(cut, partial, 6, MSG_NOSIGNAL), 6);
    ::shutdown(cut, SHUT_WR);
    EXPECT_TRUE(closedWithoutReply(cut));

    // Others are served all along, in order, many requests on one connection.
    orvane::wire::HelperConnection good(daemon.socket());
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(std::get<std::optional<std::string>>(good.ask(orvane::wire::kVersion)), "6");
        EXPECT_EQ(std::get<std::optional<std::string>>(good.ask(orvane::wire::kPerform, R"({"removePath":{"_0":"x"}})")),
                  "notAbsolutePath");
    }
}

TEST_F(DaemonTest, NoDescriptorIsLeftOpenAfterThousandsOfRequests) {
    Daemon daemon(dir_, "leaks", {ORVANE_BINARY, selfPath()});
    { orvane::wire::HelperConnection warmUp(daemon.socket()); (void)warmUp.ask(orvane::wire::kVersion); }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::size_t before = daemon.openDescriptors();
    for (int c = 0; c < 40; ++c) {
        orvane::wire::HelperConnection connection(daemon.socket());
        for (int i = 0; i < 50; ++i) {
            temp_.write("f");
            (void)connection.ask(orvane::wire::kPerform, R"({"removePath":{"_0":")" + dir_ + R"(/f"}})");
            (void)connection.ask(orvane::wire::kPerform, R"({"removePath":{"_0":")" + dir_ + R"(/link/x"}})");
            (void)connection.ask(orvane::wire::kPerform, "{broken");
        }
    }
    std::size_t after = 0;
    for (int i = 0; i < 100; ++i) {  // the connection threads close as they end
        after = daemon.openDescriptors();
        if (after <= before) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(after, before);
}

// Whether a client running as `uid` is answered "6" to a version request.
bool answeredAs(uid_t uid, const std::string& socketPath) {
    pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgid(uid) != 0 || ::setuid(uid) != 0) ::_exit(126);
        orvane::wire::HelperConnection connection(socketPath);
        auto reply = connection.ask(orvane::wire::kVersion);
        auto* text = std::get_if<std::optional<std::string>>(&reply);
        ::_exit(text && *text == "6" ? 0 : 1);
    }
    int raw = 0;
    ::waitpid(pid, &raw, 0);
    return WIFEXITED(raw) && WEXITSTATUS(raw) == 0;
}

TEST_F(DaemonTest, OneUserCannotTakeEveryPlace) {
    Daemon daemon(dir_, "caps", {ORVANE_BINARY, selfPath()});
    int counted[2], letGo[2];
    ASSERT_EQ(::pipe(counted), 0);
    ASSERT_EQ(::pipe(letGo), 0);
    // "nobody" opens 300 connections and sends nothing on them.
    pid_t holder = ::fork();
    if (holder == 0) {
        // Its own ends closed, so that it also leaves when the test is gone.
        ::close(counted[0]);
        ::close(letGo[1]);
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(126);
        std::vector<pollfd> fds;
        for (int i = 0; i < 300; ++i) fds.push_back({connectTo(daemon.socket()), POLLIN, 0});
        // The daemon closes those over the cap at once; wait until it is done with them.
        int held = 300;
        for (int round = 0; round < 100; ++round) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            ::poll(fds.data(), fds.size(), 0);
            held = static_cast<int>(std::count_if(fds.begin(), fds.end(), [](const pollfd& p) { return p.fd >= 0 && p.revents == 0; }));
            if (held <= orvane::helper::kMaxConnectionsPerUser && round >= 4) break;
        }
        (void)!::write(counted[1], &held, sizeof held);
        char byte;
        (void)!::read(letGo[0], &byte, 1);
        ::_exit(0);
    }
    int held = -1;
    ASSERT_EQ(::read(counted[0], &held, sizeof held), static_cast<ssize_t>(sizeof held));
    EXPECT_EQ(held, 16);
    EXPECT_FALSE(answeredAs(65534, daemon.socket()));  // the 301st gets nothing either
    EXPECT_TRUE(answeredAs(4242, daemon.socket()));
    // Root is never refused for the cap.
    std::vector<std::unique_ptr<orvane::wire::HelperConnection>> mine;
    for (int i = 0; i < 20; ++i) {
        mine.push_back(std::make_unique<orvane::wire::HelperConnection>(daemon.socket()));
        EXPECT_EQ(mine.back()->ask(orvane::wire::kVersion), Exchange(std::optional<std::string>("6"))) << i;
    }
    (void)!::write(letGo[1], "x", 1);
    ::waitpid(holder, nullptr, 0);
    for (int fd : {counted[0], counted[1], letGo[0], letGo[1]}) ::close(fd);
    // Its places are given back as its connections end.
    bool again = false;
    for (int i = 0; i < 40 && !again; ++i) {
        again = answeredAs(65534, daemon.socket());
        if (!again) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(again);
}

// However a peer stalls, its connection ends once a request or a reply has taken longer than the
// frame timeout; the time an operation runs is not counted against it.
TEST_F(DaemonTest, AStalledConnectionIsClosedAfterTheFrameTimeout) {
    using namespace std::chrono_literals;
    namespace wire = orvane::wire;
    auto client = orvane::helper::allowedClient(selfPath());
    ASSERT_TRUE(client.client) << client.problem;
    const std::vector<orvane::helper::AllowedClient> allowed = {*client.client};
    orvane::helper::HelperSettings settings;
    settings.logPath = dir_ + "/stall.log";
    settings.homeOf = [this](std::uint32_t) { return std::optional<std::string>(dir_); };
    settings.frameTimeout = 300ms;
    settings.operations.facts.run = [](const std::string& tool, const std::vector<std::string>&, double, bool,
                                      orvane::ToolErrors) -> orvane::ToolResult {
        if (tool == "/usr/sbin/purge") throw orvane::OVError(std::string(512 * 1024, 'e'));  // more than a socket holds
        std::this_thread::sleep_for(600ms);
        return {{}, {}, false, 0};
    };
    auto replyText = [](int fd) {
        auto frame = wire::readFrame(fd);
        return frame ? *frame : std::string("closed");
    };
    struct Case {
        const char* peer;
        std::function<std::string(int)> behave;  // what it was told
        std::string told;
        std::chrono::milliseconds atLeast, below;
    } cases[] = {
        {"sends nothing", [](int) { return std::string(); }, "", 300ms, 1500ms},
        {"trickles its frame, a byte at a time",
         [](int fd) {
             const std::string frame = std::string("\0\0\0\x0A", 4) + "Vxxxxxxxxx";
             for (char byte : frame) {
                 if (::send(fd, &byte, 1, MSG_NOSIGNAL) != 1) break;
                 std::this_thread::sleep_for(200ms);
             }
             return std::string();
         },
         "", 300ms, 2000ms},
        {"never reads its reply",
         [](int fd) {
             wire::writeFrame(fd, R"(P{"purgeInactiveMemory":{}})");
             return std::string();
         },
         "", 300ms, 1500ms},
        {"waits while an operation runs",
         [&](int fd) {
             wire::writeFrame(fd, R"(P{"thinSnapshots":{}})");
             std::string told = replyText(fd);
             wire::writeFrame(fd, "V");
             told += "|" + replyText(fd);
             return told + "|" + replyText(fd);
         },
         "0|16|closed", 900ms, 3000ms},
    };
    for (const auto& c : cases) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        const auto started = std::chrono::steady_clock::now();
        auto served = std::async(std::launch::async, [&] {
            orvane::helper::serveConnection(ends[0], allowed, settings);
            return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
        });
        EXPECT_EQ(c.behave(ends[1]), c.told) << c.peer;
        const bool ended = served.wait_for(5s) == std::future_status::ready;
        ::close(ends[1]);  // lets a daemon that kept waiting go, so the test can end
        const auto took = served.get();
        EXPECT_TRUE(ended) << c.peer;
        EXPECT_GE(took, c.atLeast) << c.peer;
        EXPECT_LT(took, c.below) << c.peer;
    }
}

}  // namespace
