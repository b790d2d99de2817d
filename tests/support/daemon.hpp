// The daemon as a real process on a socket of its own, for tests that talk to it.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace orvane::testing {

// One running daemon, stopped when the test ends.
class Daemon {
public:
    Daemon(const std::string& dir, const std::string& name, const std::vector<std::string>& clients) {
        socket_ = dir + "/" + name + ".sock";
        log_ = dir + "/" + name + ".log";
        std::vector<std::string> args = {ORVANE_HELPER_BINARY, "--socket", socket_, "--log", log_};
        for (const auto& c : clients) {
            args.push_back("--allow-client");
            args.push_back(c);
        }
        pid_ = ::fork();
        if (pid_ == 0) {
            std::vector<char*> argv;
            for (auto& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        for (int i = 0; i < 200 && !std::filesystem::exists(socket_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ~Daemon() {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    const std::string& socket() const { return socket_; }
    const std::string& log() const { return log_; }
    pid_t pid() const { return pid_; }
    std::size_t openDescriptors() const {
        const std::string fds = "/proc/" + std::to_string(pid_) + "/fd";
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(fds), std::filesystem::directory_iterator{}));
    }

private:
    std::string socket_, log_;
    pid_t pid_ = -1;
};

}  // namespace orvane::testing
