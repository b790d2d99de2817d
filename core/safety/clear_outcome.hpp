// Clearing a folder's contents: whether it needs the administrator's password, and the one line
// that says how a clearing went and what it may be credited with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvane {

enum class ClearAccess {
    ours,                // owned by this user and writable
    needsAdministrator,  // someone else's, or not writable
    missing,             // lstat failed
};
std::string_view rawValue(ClearAccess access);

// lstat for the owner, access(W_OK) for writability.
ClearAccess clearAccess(const std::string& path);

struct ClearOutcome {
    std::string message;  // "✓ ", "• " or "✗ ", the title, then what happened
    bool markDone = false;  // the row may be shown as dealt with
    std::int64_t creditBytes = 0;  // bytes to credit as reclaimed
    bool needsAdministrator = false;  // ask for the password and try again
    bool operator==(const ClearOutcome&) const = default;
};

// Only a clearing that removed everything it tried is credited, with the size it had (0 when
// unknown); a partial one is credited nothing.
ClearOutcome clearOutcome(std::string_view title, std::int64_t removed, std::int64_t skipped, ClearAccess access,
                          std::int64_t sizeBytes);

}  // namespace orvane
