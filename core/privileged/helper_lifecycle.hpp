// Whether the installed helper can do privileged work, what a person is told when it cannot,
// and how a helper left behind by another, uninstalled app is recognised.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

enum class HelperUpgradeDecision { notInstalled, current, needsUpgrade };
template <>
struct RawValues<HelperUpgradeDecision> {
    static constexpr std::array<std::pair<HelperUpgradeDecision, std::string_view>, 3> table = {{
        {HelperUpgradeDecision::notInstalled, "notInstalled"},
        {HelperUpgradeDecision::current, "current"},
        {HelperUpgradeDecision::needsUpgrade, "needsUpgrade"},
    }};
};

// Only a current helper is sent privileged operations.
constexpr bool permitsPrivilegedWork(HelperUpgradeDecision decision) { return decision == HelperUpgradeDecision::current; }

// A registered helper that does not tell its version counts as too old.
HelperUpgradeDecision helperUpgradeDecision(bool registered, const std::optional<std::string>& reportedVersion,
                                            std::int64_t required);

// The front end re-registers the helper by itself once at most; after that it is the user's call.
bool mayAutoUpgradeHelper(int attemptsAlreadyMade);

// The sentence for a helper that can't do privileged work; empty when it can.
std::string helperUnavailableNote(HelperUpgradeDecision decision, bool awaitingApproval);

// The client identifiers a helper tool admits, read from the property list embedded as text in
// its first `maxBytes`; no executable format is parsed. Empty when unreadable or absent.
std::vector<std::string> smAuthorizedClients(const std::string& binaryPath, std::uint64_t maxBytes,
                                             const Facts& facts = Facts::real());

// A helper whose every client is gone from a complete list of installed apps.
bool isOrphanedHelper(const std::vector<std::string>& clients, const std::set<std::string>& installedIDs,
                      bool inventoryComplete);

}  // namespace orvane
