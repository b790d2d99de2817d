// Gathering the evidence on one app bundle: its signature through codesign and spctl, its
// download through extended attributes and the quarantine database. Every read and every run goes
// through the Facts, so a recorded Mac answers as the Mac did; off macOS the tools are absent and
// the findings are "could not check", never a bad verdict.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "core/authenticity/genuine.hpp"
#include "core/common/facts.hpp"

namespace orvane {

inline constexpr const char* kCodesignTool = "/usr/bin/codesign";
inline constexpr const char* kGatekeeperTool = "/usr/sbin/spctl";

namespace GenuineCheck {

// Flags of a validation: no network (for whole app lists), and revocation enforced.
inline constexpr std::uint32_t kNoNetworkAccess = 0x20000000;
inline constexpr std::uint32_t kEnforceRevocationChecks = 0x40000000;

// Attributes above this size are not the small records they claim to be.
inline constexpr std::size_t kMaxAttributeBytes = 1'048'575;

// The offline findings: fast and without network, so fit for a whole app list (and cached by
// GenuineCacheKey). When codesign cannot be asked at all the report is unsigned, couldNotCheck
// and notListed: no tier rather than a bad one.
GenuineReport offline(const std::string& appPath, const std::string& appName, const std::string& bundleID,
                      const std::string& home, const Facts& facts = Facts::real());

// On request: revocation and notarisation as Apple sees them, and Gatekeeper's verdict.
OnlineGenuineResult online(const std::string& appPath, const Facts& facts = Facts::real());

// Where the copy came from: its quarantine attribute, its where-froms, and the quarantine event
// in `<home>/Library/Preferences/com.apple.LaunchServices.QuarantineEventsV2`. None when neither
// attribute says anything.
std::optional<DownloadRecord> downloadRecord(const std::string& appPath, const std::string& home,
                                             const Facts& facts = Facts::real());

// The signer and its team (kept only when it is a team id). A bundle codesign cannot display is
// unsigned with no team.
std::pair<SignerKind, std::optional<std::string>> signerAndTeam(const std::string& appPath,
                                                                const Facts& facts = Facts::real());

// The teams that signed these bundles; none when codesign could not be asked about one of them,
// since then a name led by a team cannot be told from one of an installed app's.
std::optional<std::set<std::string>> signingTeams(const std::vector<std::string>& appPaths,
                                                  const Facts& facts = Facts::real());

// Whether the signature holds. `flags` are the platform's validation flags; off macOS the tool
// decides alone and they are ignored.
SignatureState validate(const std::string& appPath, std::uint32_t flags, const Facts& facts = Facts::real());

// Offline: a stapled notarisation ticket. With the network: Gatekeeper names the source
// "Notarized Developer ID".
bool notarizedCheck(const std::string& appPath, bool network, const Facts& facts = Facts::real());

// An extended attribute's bytes; none when absent, empty or larger than kMaxAttributeBytes.
std::optional<std::string> xattrData(const std::string& path, const std::string& name,
                                     const Facts& facts = Facts::real());

// The download URL and page of a quarantine event, looked up in the database at `db` (a path
// SQLite can open), opened read-only. None for an id that is not a UUID, a missing row, or any
// failure; each of the two is none when NULL or empty.
struct QuarantineEvent {
    std::optional<std::string> url;
    std::optional<std::string> origin;
    bool operator==(const QuarantineEvent&) const = default;
};
std::optional<QuarantineEvent> quarantineEvent(const std::string& db, const std::string& id);

}  // namespace GenuineCheck

}  // namespace orvane
