// The bodies of the daemon's operations: what `run` does once validation has let an operation
// through. Each returns on success and throws a HelperError whose text is what the log records
// and the caller reads after "operationFailed: ".
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/ov_error.hpp"
#include "core/common/path.hpp"
#include "core/common/path_rules.hpp"
#include "core/privileged/protocol.hpp"
#include "core/common/facts.hpp"

namespace orvane {

// The daemon's failure: a sentence for the user, and a code that stays inside the daemon
// (1 file operation or missing home, 2 a tool, 3 the scan dump's file handling).
struct HelperError : OVError {
    int code;
    HelperError(int errorCode, std::string description) : OVError(std::move(description)), code(errorCode) {}
};
inline constexpr int kFileErrorCode = 1;
inline constexpr int kToolErrorCode = 2;
inline constexpr int kDumpErrorCode = 3;

inline constexpr const char* kLaunchTool = "/bin/launchctl";
inline constexpr const char* kSnapshotTool = "/usr/bin/tmutil";
inline constexpr const char* kMemoryTool = "/usr/sbin/purge";
inline constexpr const char* kBackgroundTaskTool = "/usr/bin/sfltool";
inline constexpr int kStaffGroup = 20;  // the group of items handed to a user

// Who asked, and the world the bodies act in: the real one, and the system's launch folders,
// unless a test says otherwise.
struct OperationContext {
    std::uint32_t callerUID = 0;
    // The caller's home as validation checked it, never looked up a second time.
    std::string callerHome;
    Facts facts = Facts::real();
    std::vector<std::string_view> launchFolders = {"/Library/LaunchAgents", "/Library/LaunchDaemons"};
};

// Carries out a validated operation, or throws HelperError.
void runOperation(const PrivilegedOperation& operation, const OperationContext& context);

// Tool output made fit for a message: lines joined with one blank, trimmed, clipped to 160
// user-perceived characters; "no detail" when nothing is left.
std::string detail(const std::vector<std::string>& lines);

// The requested snapshot dates that a fresh listing no longer shows, in request order,
// duplicates kept: the listing is believed, whatever the tool said.
std::vector<std::string> confirmedSnapshotDeletions(const std::vector<std::string>& requested,
                                                    const std::vector<std::string>& stillListed);
// The sentence telling the user what a snapshot deletion achieved.
std::string snapshotDeleteReport(const std::vector<std::string>& requested,
                                 const std::vector<std::string>& stillListed, std::int64_t releasedBytes,
                                 const std::string& detailText);

}  // namespace orvane
