#include "helper/listener.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "core/privileged/wire.hpp"

namespace orvane::helper {

int bindListeningSocket(const std::string& socketPath, std::string& problem) {
    sockaddr_un address{};
    if (socketPath.empty() || socketPath.size() >= sizeof address.sun_path) {
        problem = "The socket path is empty or longer than " + std::to_string(sizeof address.sun_path - 1) + " bytes.";
        return -1;
    }
    struct stat st{};
    if (::lstat(socketPath.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            problem = socketPath + " exists and is not a socket; it is left alone.";
            return -1;
        }
        ::unlink(socketPath.c_str());  // a socket left by an earlier run
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        problem = std::string("Cannot make a socket: ") + std::strerror(errno) + ".";
        return -1;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(socketPath.c_str(), 0666) != 0 || ::listen(fd, 128) != 0) {
        problem = "Cannot listen at " + socketPath + ": " + std::strerror(errno) + ".";
        ::close(fd);
        return -1;
    }
    return fd;
}

void serveConnection(int connectionFD, const std::vector<AllowedClient>& allowed, const HelperSettings& settings) {
    auto uid = admitPeer(connectionFD, allowed);
    if (uid) {
        const Helper helper(*uid, settings);
        while (auto frame = wire::readFrame(connectionFD)) {
            if (frame->empty()) break;
            std::optional<std::string> reply;
            const char method = frame->front();
            if (method == wire::kVersion && frame->size() == 1) reply = helper.version();
            else if (method == wire::kPerform) reply = helper.perform(std::string_view(*frame).substr(1));
            else break;  // an unknown method ends the connection and touches nothing
            if (!wire::writeFrame(connectionFD, wire::encodeReply(reply))) break;
        }
    }
    ::close(connectionFD);
}

void serve(int listeningFD, const std::vector<AllowedClient>& allowed, const HelperSettings& settings) {
    static std::atomic<int> open{0};
    for (;;) {
        int connection = ::accept4(listeningFD, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            if (errno == EMFILE || errno == ENFILE) std::this_thread::sleep_for(std::chrono::milliseconds(50));
            continue;
        }
        if (open.fetch_add(1) >= kMaxConnections) {
            open.fetch_sub(1);
            ::close(connection);
            continue;
        }
        try {
            std::thread([connection, &allowed, &settings] {
                serveConnection(connection, allowed, settings);
                open.fetch_sub(1);
            }).detach();
        } catch (...) {  // no thread to be had: this peer waits for a later try
            open.fetch_sub(1);
            ::close(connection);
        }
    }
}

}  // namespace orvane::helper
