// Who may talk to the daemon: a peer whose executable is one of the allowed client programs,
// judged by the kernel's view of the peer, before its first request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvane::helper {

// The front end as installed; admitted when no other client is named.
const char* installedClientPath();

// An allowed client program, pinned by its file identity when the daemon starts.
struct AllowedClient {
    std::string path;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const AllowedClient&) const = default;
};

// The program at `path` may be a client only if it is a regular file owned by root that no one
// else may write. Otherwise a sentence saying why not.
struct ClientCheck {
    std::optional<AllowedClient> client;
    std::string problem;
};
ClientCheck allowedClient(const std::string& path);

// The connected peer's user id when it runs one of `allowed`; none means: disconnect, no reply.
std::optional<std::uint32_t> admitPeer(int socketFD, const std::vector<AllowedClient>& allowed);

}  // namespace orvane::helper
