#include "core/privileged/wire.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0  // macOS: the socket carries SO_NOSIGPIPE instead
#endif

namespace orvane::wire {
namespace {

// Waits until the socket is ready for `events`; false once the deadline has passed.
bool ready(int fd, short events, const Deadline& deadline) {
    if (!deadline) return true;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd one{fd, events, 0};
        const int n = ::poll(&one, 1, static_cast<int>(std::min<std::int64_t>(left.count(), INT_MAX)));
        if (n > 0) return true;  // readiness, hang-up or error: the call that follows tells which
        if (n < 0 && errno != EINTR) return false;
    }
}

bool readExactly(int fd, char* into, std::size_t count, const Deadline& deadline) {
    while (count > 0) {
        if (!ready(fd, POLLIN, deadline)) return false;
        ssize_t n = ::recv(fd, into, count, deadline ? MSG_DONTWAIT : 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
        if (n <= 0) return false;
        into += n;
        count -= static_cast<std::size_t>(n);
    }
    return true;
}

bool writeAll(int fd, const char* data, std::size_t count, const Deadline& deadline) {
    // Without a deadline a blocking send may wait for a peer that never reads; with one, each
    // send takes only what fits now, so the wait happens in poll, where the clock is watched.
    const int flags = MSG_NOSIGNAL | (deadline ? MSG_DONTWAIT : 0);
    while (count > 0) {
        if (!ready(fd, POLLOUT, deadline)) return false;
        ssize_t n = ::send(fd, data, count, flags);
        if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
        if (n <= 0) return false;
        data += n;
        count -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

std::optional<std::string> readFrame(int fd, std::uint32_t maxBytes, Deadline deadline) {
    unsigned char header[4];
    if (!readExactly(fd, reinterpret_cast<char*>(header), 4, deadline)) return std::nullopt;
    const std::uint32_t length = (std::uint32_t{header[0]} << 24) | (std::uint32_t{header[1]} << 16) |
                                 (std::uint32_t{header[2]} << 8) | std::uint32_t{header[3]};
    if (length > maxBytes) return std::nullopt;
    std::string payload(length, '\0');
    if (length > 0 && !readExactly(fd, payload.data(), length, deadline)) return std::nullopt;
    return payload;
}

bool writeFrame(int fd, std::string_view payload, Deadline deadline) {
    if (payload.size() > kMaxFrame) return false;
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::string frame;
    frame.reserve(4 + payload.size());
    frame += static_cast<char>((length >> 24) & 0xFF);
    frame += static_cast<char>((length >> 16) & 0xFF);
    frame += static_cast<char>((length >> 8) & 0xFF);
    frame += static_cast<char>(length & 0xFF);
    frame += payload;
    return writeAll(fd, frame.data(), frame.size(), deadline);
}

std::string encodeReply(const std::optional<std::string>& reply) {
    return reply ? "1" + *reply : std::string("0");
}

std::optional<std::optional<std::string>> decodeReply(std::string_view payload) {
    if (payload == "0") return std::optional<std::string>{};
    if (payload.starts_with('1')) return std::optional<std::string>{std::string(payload.substr(1))};
    return std::nullopt;
}

HelperConnection::HelperConnection(const std::string& socketPath) {
    sockaddr_un address{};
    if (socketPath.empty() || socketPath.size() >= sizeof address.sun_path) {
        error_ = "The helper's socket path is empty or too long.";
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
#ifdef SOCK_CLOEXEC
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
    fd_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
#endif
    if (fd_ < 0) {
        error_ = std::string("Cannot make a socket: ") + std::strerror(errno) + ".";
        return;
    }
#ifdef SO_NOSIGPIPE
    int on = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        error_ = "The helper is not running: nothing answers at " + socketPath + " (" + std::strerror(errno) + ").";
        ::close(fd_);
        fd_ = -1;
    }
}

HelperConnection::~HelperConnection() {
    if (fd_ >= 0) ::close(fd_);
}

Exchange HelperConnection::ask(char method, std::string_view body) {
    if (fd_ < 0) return NoDaemon{error_};
    std::string request(1, method);
    request += body;
    if (!writeFrame(fd_, request)) return NoAnswer{};
    auto frame = readFrame(fd_);
    if (!frame) return NoAnswer{};
    auto reply = decodeReply(*frame);
    if (!reply) return NoAnswer{};
    return *reply;
}

Exchange askHelper(const std::string& socketPath, char method, std::string_view body) {
    HelperConnection connection(socketPath);
    return connection.ask(method, body);
}

}  // namespace orvane::wire
