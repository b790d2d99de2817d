#include "core/common/tool_runner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

#include "core/common/fd.hpp"
#include "core/common/text.hpp"
#include "core/platform/platform.hpp"

extern char** environ;

namespace orvane {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;

// The watchdog's grace between SIGTERM and SIGKILL, and how long past the deadline the output
// may stay open before the run is given up (the grace plus the watchdog's own sleep).
constexpr auto kTermGrace = std::chrono::milliseconds(3000);
constexpr auto kOutputMargin = std::chrono::milliseconds(4500);
constexpr auto kErrorWait = std::chrono::milliseconds(4500);


bool makePipe(Fd& readEnd, Fd& writeEnd) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    readEnd = Fd(fds[0]);
    writeEnd = Fd(fds[1]);
    return true;
}

// The spawn-time set-up both runners share: standard input on the null device, default signal
// handling and an empty mask in the child (whatever this process ignores or blocks), and every
// other descriptor closed.
class SpawnSetup {
public:
    SpawnSetup() {
        ok_ = posix_spawn_file_actions_init(&actions_) == 0;
        ok_ = posix_spawnattr_init(&attributes_) == 0 && ok_;
        sigset_t none, defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGCHLD, SIGUSR1, SIGUSR2, SIGALRM, SIGTSTP,
                        SIGTTIN, SIGTTOU})
            sigaddset(&defaults, sig);
        ok_ = ok_ && posix_spawnattr_setsigmask(&attributes_, &none) == 0;
        ok_ = ok_ && posix_spawnattr_setsigdefault(&attributes_, &defaults) == 0;
        ok_ = ok_ && posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
        ok_ = ok_ && posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0) == 0;
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    void toNull(int target) {
        ok_ = ok_ && posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_WRONLY, 0) == 0;
    }
    void dup(int from, int target) { ok_ = ok_ && posix_spawn_file_actions_adddup2(&actions_, from, target) == 0; }

    // The pid, or -1 when the tool could not be started.
    pid_t spawn(const std::string& tool, const std::vector<std::string>& args) {
        ok_ = ok_ && platform::closeOtherDescriptorsInChild(&actions_, &attributes_);
        if (!ok_ || tool.empty() || tool.find('\0') != std::string::npos) return -1;
        std::vector<char*> argv;
        argv.reserve(args.size() + 2);
        argv.push_back(const_cast<char*>(tool.c_str()));
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        pid_t pid = -1;
        // posix_spawn, not posix_spawnp: the path is used as given, never looked up.
        if (posix_spawn(&pid, tool.c_str(), &actions_, &attributes_, argv.data(), environ) != 0) return -1;
        return pid;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    bool ok_ = true;
};

std::int32_t terminationStatus(int raw) {
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    if (WIFSIGNALED(raw)) return WTERMSIG(raw);
    return -1;
}

// Reaps the child if it has ended; the status once it has.
struct Child {
    pid_t pid = -1;
    bool reaped = false;
    int raw = 0;

    bool poll() {
        if (reaped) return true;
        for (;;) {
            pid_t r = ::waitpid(pid, &raw, WNOHANG);
            if (r == pid) return reaped = true;
            if (r < 0 && errno == EINTR) continue;
            if (r < 0) return reaped = true, raw = -1, true;  // not ours to wait for any more
            return false;
        }
    }
    void signal(int sig) {
        // Until it is reaped the pid cannot be reused, so the signal reaches this child or no one.
        if (!poll()) ::kill(pid, sig);
    }
    // A child given up on is still reaped, off the caller's thread, so no zombie is left.
    void abandon() {
        if (poll()) return;
        std::thread([pid = pid] {
            int ignored = 0;
            while (::waitpid(pid, &ignored, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }
};

// What a pipe delivered. Grown with realloc, which moves large blocks by remapping rather than
// copying, and read into directly, so 100 MB of output is not copied over and over.
class Bytes {
public:
    Bytes() = default;
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { std::free(data_); }

    // Room for at least `more` bytes at the end; false when memory ran out.
    bool reserveTail(std::size_t more) {
        if (capacity_ - size_ >= more) return true;
        std::size_t wanted = std::max(capacity_ * 2, size_ + more);
        void* grown = std::realloc(data_, wanted);
        if (!grown) return false;
        data_ = static_cast<char*>(grown);
        capacity_ = wanted;
        return true;
    }
    char* tail() { return data_ + size_; }
    std::size_t room() const { return capacity_ - size_; }
    void grew(std::size_t n) { size_ += n; }
    std::string_view view() const { return {data_ ? data_ : "", size_}; }

private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

// Reads what is ready on a pipe; false once it reached its end or failed.
bool drain(Fd& fd, Bytes& into) {
    constexpr std::size_t kChunk = 1 << 16;
    for (;;) {
        if (!into.reserveTail(kChunk)) {
            fd.reset();  // out of memory: what was read so far is all there will be
            return false;
        }
        const std::size_t room = into.room();
        ssize_t n = ::read(fd.get(), into.tail(), room);
        if (n > 0) {
            into.grew(static_cast<std::size_t>(n));
            if (static_cast<std::size_t>(n) < room) return true;
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
        fd.reset();
        return false;
    }
}

std::chrono::nanoseconds clampedTimeout(double seconds) {
    if (!(seconds > 0)) return std::chrono::nanoseconds(0);
    // Far beyond any real time limit, and small enough not to overflow the clock.
    seconds = std::min(seconds, 1e8);
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

}  // namespace

std::vector<std::string> splitToolOutput(std::string_view text, bool nulDelimited) {
    std::vector<std::string> pieces;
    const char separator = nulDelimited ? '\0' : '\n';
    // Counting first spares a million-line output its vector's repeated regrowth.
    pieces.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), separator)) + 1);
    std::size_t start = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const void* hit = std::memchr(text.data() + at, separator, text.size() - at);
        if (!hit) break;
        std::size_t pos = static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
        at = pos + 1;
        if (!nulDelimited && pos > 0 && text[pos - 1] == '\r') continue;  // "\r\n" is one character
        if (pos > start) pieces.emplace_back(text.substr(start, pos - start));
        start = pos + 1;
    }
    if (start < text.size()) pieces.emplace_back(text.substr(start));
    return pieces;
}

ToolResult runToolSplit(const std::string& tool, const std::vector<std::string>& args, double timeout,
                        bool nulDelimited, ToolErrors errors) {
    ToolResult failed;  // empty, not timed out, status -1
    Fd outRead, outWrite, errRead, errWrite;
    if (!makePipe(outRead, outWrite)) return failed;
    if (errors == ToolErrors::separate && !makePipe(errRead, errWrite)) return failed;

    SpawnSetup setup;
    setup.dup(outWrite.get(), 1);
    switch (errors) {
        case ToolErrors::discarded: setup.toNull(2); break;
        case ToolErrors::merged: setup.dup(outWrite.get(), 2); break;
        case ToolErrors::separate: setup.dup(errWrite.get(), 2); break;
    }
    Child child{setup.spawn(tool, args)};
    if (child.pid < 0) return failed;
    // Only the child may hold the write ends now, so the pipes end when it and its heirs do.
    outWrite.reset();
    errWrite.reset();
    // A larger pipe means fewer wake-ups for a tool that prints a lot; refused is fine too.
    platform::enlargePipe(outRead.get());
    ::fcntl(outRead.get(), F_SETFL, O_NONBLOCK);
    if (errRead.open()) ::fcntl(errRead.get(), F_SETFL, O_NONBLOCK);

    const auto start = SteadyClock::now();
    const auto deadline = start + clampedTimeout(timeout);
    const auto givingUp = deadline + kOutputMargin;
    std::optional<SteadyClock::time_point> termSent;
    bool killSent = false;
    bool stopped = false;  // the watchdog (or giving up) stopped the tool
    Bytes out, err;

    // The watchdog's work at this moment; the time of its next step.
    auto watch = [&](SteadyClock::time_point now) -> SteadyClock::time_point {
        if (child.reaped) return SteadyClock::time_point::max();
        if (!termSent) {
            if (now < deadline) return deadline;
            if (child.poll()) return SteadyClock::time_point::max();
            stopped = true;
            child.signal(SIGTERM);
            termSent = now;
        }
        if (!killSent) {
            if (now < *termSent + kTermGrace) return *termSent + kTermGrace;
            child.signal(SIGKILL);
            killSent = true;
        }
        return SteadyClock::time_point::max();
    };

    // Both pipes at once until standard output ends, so a tool that fills one never blocks.
    while (outRead.open()) {
        auto now = SteadyClock::now();
        if (now >= givingUp) {
            stopped = true;
            child.signal(SIGKILL);
            child.abandon();
            return ToolResult{{}, {}, true, -1};
        }
        auto next = std::min(watch(now), givingUp);
        pollfd fds[2] = {{outRead.get(), POLLIN, 0}, {errRead.get(), POLLIN, 0}};
        const nfds_t count = errRead.open() ? 2 : 1;
        auto waitMs = std::chrono::duration_cast<Millis>(next - now).count() + 1;
        int ready = ::poll(fds, count, static_cast<int>(std::min<long long>(waitMs, 60'000)));
        if (ready < 0 && errno != EINTR) break;
        if (ready <= 0) continue;
        if (fds[0].revents) drain(outRead, out);
        if (count == 2 && fds[1].revents) drain(errRead, err);
    }

    // Standard output has ended; the tool itself may still be running.
    for (auto pause = std::chrono::microseconds(20); !child.poll();) {
        auto now = SteadyClock::now();
        if (now >= givingUp) {
            child.abandon();
            return ToolResult{{}, {}, true, -1};
        }
        watch(now);
        if (errRead.open()) {
            pollfd fd = {errRead.get(), POLLIN, 0};
            if (::poll(&fd, 1, 0) > 0) drain(errRead, err);
        }
        std::this_thread::sleep_for(pause);
        pause = std::min<std::chrono::microseconds>(pause * 2, std::chrono::milliseconds(50));
    }

    // What standard error holds within a bounded wait is what counts.
    const auto errorsBy = SteadyClock::now() + kErrorWait;
    while (errRead.open()) {
        auto now = SteadyClock::now();
        if (now >= errorsBy) break;
        pollfd fd = {errRead.get(), POLLIN, 0};
        auto waitMs = std::chrono::duration_cast<Millis>(errorsBy - now).count() + 1;
        int ready = ::poll(&fd, 1, static_cast<int>(waitMs));
        if (ready < 0 && errno != EINTR) break;
        if (ready > 0) drain(errRead, err);
    }

    return toolResultFromOutput(out.view(), err.view(), nulDelimited,
                                child.raw == -1 ? -1 : terminationStatus(child.raw), stopped);
}

ToolResult toolResultFromOutput(std::string_view out, std::string_view err, bool nulDelimited, std::int32_t status,
                                bool timedOut) {
    ToolResult result;
    result.timedOut = timedOut;
    result.status = status;
    if (isValidUTF8(err)) result.errLines = splitToolOutput(err, false);
    if (nulDelimited) {
        result.lines = splitToolOutput(out, true);
        result.skippedRecords = static_cast<std::size_t>(
            std::erase_if(result.lines, [](const std::string& record) { return !isValidUTF8(record); }));
    } else if (isValidUTF8(out)) {
        result.lines = splitToolOutput(out, false);
    }
    return result;
}

std::int32_t runStatus(const std::string& tool, const std::vector<std::string>& args) {
    SpawnSetup setup;
    setup.toNull(1);
    setup.toNull(2);
    pid_t pid = setup.spawn(tool, args);
    if (pid < 0) return -1;
    int raw = 0;
    while (::waitpid(pid, &raw, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return terminationStatus(raw);
}

std::string joinedLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) text += '\n';
        text += line;
    }
    return text;
}

}  // namespace orvane
