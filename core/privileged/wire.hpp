// The daemon's socket framing, shared by the daemon and its clients: a 4-byte big-endian length,
// then that many bytes. A request is a method byte ('P' perform, 'V' version), for perform
// followed by the JSON document; a reply is '0' (absent) or '1' followed by UTF-8 text.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace orvane::wire {

inline constexpr std::uint32_t kMaxFrame = 1u << 20;
// The longest reply text that fits in a frame beside its presence byte.
inline constexpr std::size_t kMaxReplyText = kMaxFrame - 1;
inline constexpr char kPerform = 'P';
inline constexpr char kVersion = 'V';

// A moment by which a whole frame must have gone through, however the peer trickles its bytes;
// none waits as long as the peer likes. A frame cut by its deadline leaves the stream unusable.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// One whole frame, or none at the end of the stream, on a truncated frame, on an error, past the
// deadline, or when the announced length is above `maxBytes` (nothing of such a frame is read).
std::optional<std::string> readFrame(int fd, std::uint32_t maxBytes = kMaxFrame, Deadline deadline = {});
// False when the frame is too large or could not be written whole by the deadline. Never raises
// SIGPIPE.
bool writeFrame(int fd, std::string_view payload, Deadline deadline = {});

std::string encodeReply(const std::optional<std::string>& reply);
// The reply a payload carries (itself optional: absent means "done"); none when malformed.
std::optional<std::optional<std::string>> decodeReply(std::string_view payload);

// A client's view of one exchange with the daemon.
struct NoDaemon {
    std::string why;  // a sentence
    bool operator==(const NoDaemon&) const = default;
};
struct NoAnswer {  // connected, but the daemon closed without replying (a refused peer)
    bool operator==(const NoAnswer&) const = default;
};
using Exchange = std::variant<std::optional<std::string>, NoDaemon, NoAnswer>;

// Connects, sends one request, reads one reply, disconnects.
Exchange askHelper(const std::string& socketPath, char method, std::string_view body = {});

// A connection kept open for many requests, as the front end and the load benchmark use it.
class HelperConnection {
public:
    explicit HelperConnection(const std::string& socketPath);
    ~HelperConnection();
    HelperConnection(const HelperConnection&) = delete;
    HelperConnection& operator=(const HelperConnection&) = delete;

    bool connected() const { return fd_ >= 0; }
    const std::string& error() const { return error_; }
    Exchange ask(char method, std::string_view body = {});

private:
    int fd_ = -1;
    std::string error_;
};

}  // namespace orvane::wire
