// The daemon's transport: a local stream socket, one thread per admitted connection.
#pragma once

#include <string>
#include <vector>

#include "helper/admission.hpp"
#include "helper/helper.hpp"

namespace orvane::helper {

// Connections served at once; more are closed at once, so a flood of idle peers cannot
// exhaust the daemon's threads.
inline constexpr int kMaxConnections = 256;
// Connections one user id may hold at once, so that no user can take every place from the
// others; root's are never refused for it.
inline constexpr int kMaxConnectionsPerUser = 16;

// Binds the socket (replacing a stale socket file, never anything else), mode 0666 since
// admission is by credentials. A descriptor, or -1 with a sentence in `problem`.
int bindListeningSocket(const std::string& socketPath, std::string& problem);

// Serves one connection to its end: admission first, then requests answered in order. A refused
// peer, an oversized or truncated frame, an unknown method, or a request or reply that does not
// go through within `settings.frameTimeout` ends the connection with no reply.
void serveConnection(int connectionFD, const std::vector<AllowedClient>& allowed, const HelperSettings& settings);

// Accepts for ever on a bound socket. A connection over either cap is closed at once, before
// admission, with no reply.
[[noreturn]] void serve(int listeningFD, const std::vector<AllowedClient>& allowed, const HelperSettings& settings);

}  // namespace orvane::helper
