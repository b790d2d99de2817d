// Whether the daemon may carry out an operation at all: string rules plus lstat and existence
// checks, describing the disk at the moment of asking. It changes nothing. What holds at the
// moment of acting is the business of the no-follow primitives.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/platform.hpp"
#include "core/privileged/protocol.hpp"

namespace orvane {

// Which rules validation applies. macOS keeps its own system out of root's reach, so its rules
// guard only what it leaves open. A system that protects nothing from root (Linux) needs more:
// its system folders, its start-up places, its homes under /home, and deny by default for a
// caller who is not root.
enum class RuleSet {
    macOS,
    withLinuxAdditions,
};
#ifdef __linux__
inline constexpr RuleSet kHostRuleSet = RuleSet::withLinuxAdditions;
#else
inline constexpr RuleSet kHostRuleSet = RuleSet::macOS;
#endif

// The questions validation asks of the disk and of the system. Tests hand in a made-up disk;
// everyone else uses real().
struct DiskFacts {
    std::function<std::optional<platform::FileFacts>(const std::string&)> lstat;
    std::function<bool(const std::string&)> exists;  // follows links: a dangling link is absent
    // The mount point statfs reports for a path; none when statfs fails.
    std::function<std::optional<std::string>(const std::string&)> mountPoint;
    // The comparison form turned back into a path to walk on this disk (platform::walkablePath).
    std::function<std::string(std::string_view)> walkable;
    RuleSet rules = kHostRuleSet;
    // Whether a user may administer the system (only the Linux additions ask).
    std::function<bool(std::uint32_t)> isAdministrator = [](std::uint32_t) { return false; };
    // Whether names that differ only in Unicode normal form are one name on this disk.
    bool namesAreNormalized = true;

    static const DiskFacts& real();
};

// None: go on. A refusal: the first rule the operation fails. `callerUID` absent makes it the
// front end's dry run, which skips the rules that depend on who asks.
std::optional<PrivilegedRefusal> validate(const PrivilegedOperation& operation,
                                          const std::string& home,
                                          std::optional<std::uint32_t> callerUID,
                                          const DiskFacts& disk = DiskFacts::real());

// The dry run of a whole plan, knowing that an earlier removePath, swapToSymlink or moveAside
// vacates its path for a later moveAside or restoreFromStaging.
struct BatchRefusal {
    PrivilegedOperation op;
    PrivilegedRefusal refusal;
    std::size_t index = 0;  // 0-based position of `op` in the plan
    bool operator==(const BatchRefusal&) const = default;
};
std::optional<BatchRefusal> validatePrivilegedBatch(const std::vector<PrivilegedOperation>& operations,
                                                    const std::string& home,
                                                    const DiskFacts& disk = DiskFacts::real());

// Places where an item would start by itself or with more right than its owner. `home` may be
// empty. Byte-exact and case-sensitive.
bool isPersistenceLocation(std::string_view path, std::string_view home, RuleSet rules = kHostRuleSet);

// The Linux additions' own questions, on a path in its lexical clean form ("/tmp/x", not
// "/private/tmp/x"): whether it is or lies under a system folder that is never deletable (a
// drive under /run/media/<user> is not), and whether it lies under a place where an
// administrator may clean what root owns (the clean-up roots and removable drives).
bool isUnderLinuxSystemRoot(std::string_view path);
bool isUnderAdministratorCleanupRoot(std::string_view path);

// The form in which two spellings of one place compare equal, without touching the disk:
// "/System/Volumes/Data//Users/a/" gives "/Users/a", "/tmp" gives "/private/tmp".
std::string canonicalPathForComparison(std::string_view path);

// Only a third-party plist directly in /Library/LaunchAgents or /Library/LaunchDaemons.
bool systemLaunchItemPathAllowed(std::string_view path);

// False for "/", the system roots, the home and its ancestors, anything directly under "/",
// and a mount point.
bool assertDeletable(std::string_view path, std::string_view home,
                     const DiskFacts& disk = DiskFacts::real());

// True when any step from "/" to the path, the path itself included, is a symlink. Steps that
// cannot be read are passed over.
bool pathTraversesSymlink(std::string_view path, const DiskFacts& disk = DiskFacts::real());

bool isSymlinkPath(std::string_view path, const DiskFacts& disk = DiskFacts::real());

// The guard on a name that will reach deleteTrashedApp: "X.app", or the Finder's
// "X.app 12-34-56" rename of a second app of one name.
bool isTrashedAppName(std::string_view name);

// Whether a place may receive something for this caller: the home, a root-owned place, or a
// place directly inside a root-owned folder. Always true without a caller.
bool inCallerDomain(std::string_view path, std::string_view home,
                    std::optional<std::uint32_t> caller, const DiskFacts& disk = DiskFacts::real());

// Whether a place lies in another user's home (or in /Users/Shared). Always false without a caller.
bool inForeignHome(std::string_view path, std::string_view home,
                   std::optional<std::uint32_t> caller, const DiskFacts& disk = DiskFacts::real());

// The suffix a switched-off launch item carries.
inline constexpr std::string_view kDisabledSuffix = ".disabled-by-orvane";

}  // namespace orvane
