#include "helper/admission.hpp"

#include <sys/stat.h>

#include "core/platform/platform.hpp"

namespace orvane::helper {

const char* installedClientPath() { return ORVANE_INSTALLED_CLIENT; }

ClientCheck allowedClient(const std::string& path) {
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0) return {std::nullopt, "The client program " + path + " does not exist."};
    if (!S_ISREG(st.st_mode)) return {std::nullopt, "The client program " + path + " is not a regular file."};
    // Anyone who can rewrite the program could speak to the daemon through it.
    if (st.st_uid != 0 || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return {std::nullopt, "The client program " + path + " must be owned by root and writable by no one else."};
    return {AllowedClient{path, static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)}, {}};
}

std::optional<std::uint32_t> admitPeer(int socketFD, const std::vector<AllowedClient>& allowed) {
    auto peer = platform::socketPeer(socketFD);
    if (!peer) return std::nullopt;
    for (const auto& client : allowed) {
        // The file the peer runs, not a path it could have been started under.
        if (peer->executableDevice == client.device && peer->executableInode == client.inode) return peer->uid;
    }
    return std::nullopt;
}

}  // namespace orvane::helper
