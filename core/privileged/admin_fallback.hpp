// The road to root without the helper: one shell command run through an administrator prompt.
// A shell follows links on plain paths, so this says which paths it would walk, when a swap
// through it is exposed, and the exact words for every half-finished result.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/privileged/protocol.hpp"

namespace orvane {

namespace admin {
struct Failed {
    std::string message;
    bool operator==(const Failed&) const = default;
};
struct OK {
    bool operator==(const OK&) const = default;
};
// The user dismissed the password prompt.
struct Cancelled {
    bool operator==(const Cancelled&) const = default;
};
}  // namespace admin
using AdminOutcome = std::variant<admin::Failed, admin::OK, admin::Cancelled>;
inline bool isOK(const AdminOutcome& outcome) { return std::holds_alternative<admin::OK>(outcome); }

// A tree counted before and after a step.
struct TreeTally {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
    std::int64_t links = 0;
    bool operator==(const TreeTally&) const = default;
};

enum class AdminSwapAftermath { unchanged, partiallyRemoved, fullyRemoved };

// The text in single quotes for a POSIX shell.
std::string shellQuote(std::string_view text);

// The AppleScript that runs `command` as administrator, waiting up to a day.
std::string adminShellScript(std::string_view command);

inline constexpr const char* kOsascript = "/usr/bin/osascript";

// Runs the script and waits as long as the prompt and the command take. Never throws.
AdminOutcome runAdminScript(const std::string& script, const std::string& program = kOsascript);

// The paths a shell carrying out `operation` would walk with links followed; `home` stands for
// the user's home where the operation names a place in it.
std::vector<std::string> fallbackFollowedPaths(const PrivilegedOperation& operation, std::string_view home);

// Whether someone other than root could exchange a folder above `path` (from its grandparent up)
// while the fallback runs: a folder in the home, or one anybody may write without the sticky bit.
bool fallbackSwapVulnerable(std::string_view path, std::string_view home, const Facts& facts = Facts::real());

AdminSwapAftermath adminSwapAftermath(bool originalPresent, const TreeTally& before, const TreeTally& after);

std::string failedAdminSwapMessage(AdminSwapAftermath aftermath, std::string_view original,
                                   std::string_view verifiedCopy, bool relinked);

}  // namespace orvane
