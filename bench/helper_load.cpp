// Load on the daemon: many clients at once, every reply checked, then one connection flat out.
//   helper_load ORVANE_HELPER [CLIENTS] [REQUESTS]
// Runs as root (the daemon admits this program by its file, which must be root's).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "core/privileged/wire.hpp"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using orvane::wire::HelperConnection;

namespace {

std::string replyText(const orvane::wire::Exchange& e) {
    if (auto* r = std::get_if<std::optional<std::string>>(&e)) return *r ? **r : "<absent>";
    return "<no answer>";
}

long statusField(pid_t pid, const char* field) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(field)) return std::stol(line.substr(std::string(field).size()));
    return -1;
}

std::size_t openDescriptors(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator{}));
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: helper_load ORVANE_HELPER [CLIENTS] [REQUESTS]\n");
        return 2;
    }
    if (geteuid() != 0) {
        std::fprintf(stderr, "helper_load: run as root (the daemon and its removals need it); skipped.\n");
        return 0;
    }
    const int clients = argc > 2 ? std::stoi(argv[2]) : 50;
    const int total = argc > 3 ? std::stoi(argv[3]) : 200000;
    const std::string dir = "/tmp/orvane-helper-load";
    fs::remove_all(dir);
    fs::create_directories(dir + "/files");
    const std::string socket = dir + "/helper.sock", self = fs::read_symlink("/proc/self/exe");

    pid_t daemon = fork();
    if (daemon == 0) {
        execl(argv[1], argv[1], "--socket", socket.c_str(), "--log", (dir + "/helper.log").c_str(), "--allow-client",
              self.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 300 && !fs::exists(socket); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    { HelperConnection warm(socket); (void)warm.ask(orvane::wire::kVersion); }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const std::size_t fdsBefore = openDescriptors(daemon);

    std::atomic<long> wrong{0}, done{0};
    std::vector<std::vector<double>> latencies(static_cast<std::size_t>(clients));
    const int perClient = total / clients;
    auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            HelperConnection connection(socket);
            auto& mine = latencies[static_cast<std::size_t>(c)];
            mine.reserve(static_cast<std::size_t>(perClient));
            for (int i = 0; i < perClient; ++i) {
                std::string expected, body;
                char method = orvane::wire::kPerform;
                std::string file;
                switch (i % 3) {
                    case 0: method = orvane::wire::kVersion; expected = "6"; break;
                    case 1: body = R"({"removePath":{"_0":"relative/path"}})"; expected = "notAbsolutePath"; break;
                    default:
                        file = dir + "/files/c" + std::to_string(c) + "-" + std::to_string(i);
                        std::ofstream(file) << "x";
                        body = R"({"removePath":{"_0":")" + file + R"("}})";
                        expected = "<absent>";
                }
                auto t0 = Clock::now();
                auto reply = replyText(connection.ask(method, body));
                mine.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
                if (reply != expected || (!file.empty() && fs::exists(file))) ++wrong;
                ++done;
            }
        });
    }
    for (auto& t : threads) t.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::vector<double> all;
    for (auto& l : latencies) all.insert(all.end(), l.begin(), l.end());

    // One connection, refusals only.
    long refusals = 0;
    auto oneStart = Clock::now();
    {
        HelperConnection connection(socket);
        while (Clock::now() - oneStart < std::chrono::seconds(3)) {
            if (replyText(connection.ask(orvane::wire::kPerform, R"({"removePath":{"_0":"relative/path"}})")) !=
                "notAbsolutePath")
                ++wrong;
            ++refusals;
        }
    }
    const double oneSeconds = std::chrono::duration<double>(Clock::now() - oneStart).count();

    std::size_t fdsAfter = 0;
    for (int i = 0; i < 100; ++i) {
        fdsAfter = openDescriptors(daemon);
        if (fdsAfter <= fdsBefore) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const long peakKiB = statusField(daemon, "VmHWM:");
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
    fs::remove_all(dir);

    std::printf("helper_load: %d clients, %ld requests in %.2f s: %.0f requests/s, p50 %.0f us, p99 %.0f us\n",
                clients, done.load(), seconds, static_cast<double>(done.load()) / seconds, percentile(all, 0.5),
                percentile(all, 0.99));
    std::printf("helper_load: one connection, refusals only: %.0f refusals/s (goal: at least 10000) %s\n",
                static_cast<double>(refusals) / oneSeconds,
                static_cast<double>(refusals) / oneSeconds >= 10000 ? "ok" : "MISSED");
    std::printf("helper_load: wrong or missing replies: %ld; daemon descriptors before %zu, after %zu; peak memory %ld KiB\n",
                wrong.load(), fdsBefore, fdsAfter, peakKiB);
    return wrong.load() == 0 && fdsAfter <= fdsBefore ? 0 : 1;
}
