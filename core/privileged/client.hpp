// The front end's one way to ask the daemon: a call answers done, refused (the refusal and its
// sentence), failed (the daemon's sentence), or unreachable (why no daemon could be asked).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/privileged/protocol.hpp"
#include "core/scan/generic_scan.hpp"

namespace orvane {

// Where the daemon listens unless told otherwise: the daemon and its clients share this one.
inline constexpr const char* kDefaultHelperSocket = "/var/run/com.velloran.orvane.helper.sock";

struct HelperAnswer {
    enum class Kind { done, refused, failed, unreachable };
    Kind kind = Kind::done;
    std::optional<PrivilegedRefusal> refusal;  // with refused
    std::string sentence;                      // why, for everything but done
    std::string reply;                         // the daemon's reply text as it came; empty when done
    bool operator==(const HelperAnswer&) const = default;
};

// The sentence a person reads for a refusal.
std::string_view refusalSentence(PrivilegedRefusal refusal);

// Sends one request document (the JSON form of an operation) and reads its reply.
HelperAnswer performThroughHelper(std::string_view request, const std::string& socket = kDefaultHelperSocket);
HelperAnswer performThroughHelper(const PrivilegedOperation& operation,
                                  const std::string& socket = kDefaultHelperSocket);

// The daemon's version text, or why there is none (`sentence` of an unreachable answer).
struct HelperVersion {
    std::optional<std::string> version;
    std::string problem;
};
HelperVersion helperVersionThrough(const std::string& socket = kDefaultHelperSocket);

// A scan as root: the daemon writes its dump into a fresh folder of the caller's own under
// `home`, which is read and removed. The dump, or the answer that explains why there is none.
struct AdministratorScan {
    std::optional<GenericScanDump> dump;
    HelperAnswer answer;  // done with a dump; otherwise why not (a dump that does not decode: failed)
};
AdministratorScan scanAsAdministrator(const ScanScope& scope, const std::string& home,
                                      const std::string& socket = kDefaultHelperSocket);

}  // namespace orvane
