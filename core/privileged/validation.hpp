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

#include "core/common/facts.hpp"
#include "core/common/path_rules.hpp"
#include "core/privileged/protocol.hpp"

namespace orvane {

// None: go on. A refusal: the first rule the operation fails. `callerUID` absent makes it the
// front end's dry run, which skips the rules that depend on who asks.
std::optional<PrivilegedRefusal> validate(const PrivilegedOperation& operation,
                                          const std::string& home,
                                          std::optional<std::uint32_t> callerUID,
                                          const Facts& facts = Facts::real());

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
                                                    const Facts& facts = Facts::real());

// Only a third-party plist directly in /Library/LaunchAgents or /Library/LaunchDaemons.
bool systemLaunchItemPathAllowed(std::string_view path);

// The guard on a name that will reach deleteTrashedApp: "X.app", or the Finder's
// "X.app 12-34-56" rename of a second app of one name.
bool isTrashedAppName(std::string_view name);

// Whether a place may receive something for this caller: the home, a root-owned place, or a
// place directly inside a root-owned folder. With the Linux additions and a caller who is not
// root: the home, a place whose parent the caller owns, and for an administrator a place under
// the clean-up roots. Always true without a caller.
bool inCallerDomain(std::string_view path, std::string_view home,
                    std::optional<std::uint32_t> caller, const Facts& facts = Facts::real());

// Whether a place lies in another user's home (or in /Users/Shared). Always false without a caller.
bool inForeignHome(std::string_view path, std::string_view home,
                   std::optional<std::uint32_t> caller, const Facts& facts = Facts::real());

}  // namespace orvane
