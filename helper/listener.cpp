#include "helper/listener.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <iostream>
#include <thread>

#include "core/platform/platform.hpp"
#include "core/privileged/wire.hpp"

namespace orvane::helper {
namespace {

// The connections being served, in all and per user id.
class ConnectionSlots {
public:
    bool take(std::uint32_t uid) {
        const std::lock_guard lock(mutex_);
        // Root is never turned away: no user can fill the places so that the administrator
        // cannot get in.
        if (uid != 0 && total_ >= kMaxConnections) return false;
        const auto held = perUser_.find(uid);
        if (uid != 0 && held != perUser_.end() && held->second >= kMaxConnectionsPerUser) return false;
        ++perUser_[uid];
        ++total_;
        return true;
    }
    void release(std::uint32_t uid) {
        const std::lock_guard lock(mutex_);
        --total_;
        if (--perUser_[uid] == 0) perUser_.erase(uid);
    }

private:
    std::mutex mutex_;
    int total_ = 0;
    std::map<std::uint32_t, int> perUser_;
};

wire::Deadline after(std::chrono::milliseconds timeout) { return std::chrono::steady_clock::now() + timeout; }

}  // namespace

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
        // The clock starts anew for every request, once the previous reply is out.
        while (auto frame = wire::readFrame(connectionFD, wire::kMaxFrame, after(settings.frameTimeout))) {
            if (frame->empty()) break;
            std::optional<std::string> reply;
            const char method = frame->front();
            if (method == wire::kVersion && frame->size() == 1) reply = helper.version();
            else if (method == wire::kPerform) reply = helper.perform(std::string_view(*frame).substr(1));
            else break;  // an unknown method ends the connection and touches nothing
            if (!wire::writeFrame(connectionFD, wire::encodeReply(reply), after(settings.frameTimeout))) break;
        }
    }
    ::close(connectionFD);
}

void serve(int listeningFD, const std::vector<AllowedClient>& allowed, const HelperSettings& settings) {
    ConnectionSlots slots;  // this loop never ends, so the threads may hold on to it
    for (;;) {
        int connection = ::accept4(listeningFD, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            // A socket that can no longer accept would only spin; the service manager starts anew.
            if (errno == EBADF || errno == EINVAL || errno == ENOTSOCK) {
                std::cerr << "orvane-helper: the listening socket failed: " << std::strerror(errno) << '\n';
                std::exit(1);
            }
            if (errno == EMFILE || errno == ENFILE) std::this_thread::sleep_for(std::chrono::milliseconds(50));
            continue;
        }
        // Counted by the kernel's word on the user, before admission spends anything on the peer.
        const auto uid = platform::socketPeerUID(connection);
        if (!uid || !slots.take(*uid)) {
            ::close(connection);
            continue;
        }
        try {
            std::thread([connection, uid = *uid, &slots, &allowed, &settings] {
                serveConnection(connection, allowed, settings);
                slots.release(uid);
            }).detach();
        } catch (...) {  // no thread to be had: this peer waits for a later try
            slots.release(*uid);
            ::close(connection);
        }
    }
}

}  // namespace orvane::helper
