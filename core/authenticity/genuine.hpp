// Whether an app is what it says it is: the findings on one bundle (signer, signature, notarisation,
// vendor, download), their reduction to a tier and a one-line summary, and the parsers of the
// evidence. Everything here is pure but the cache key's lstat; genuine_check.hpp gathers the
// evidence.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/authenticity/known_vendors.hpp"
#include "core/common/facts.hpp"
#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// In order of trust. No tier at all means the signature could not be judged.
enum class GenuineTier {
    gold,   // the right vendor, confirmed by the strongest test available
    green,  // a valid signature of a recognised kind, nothing against it
    amber,  // a signature that says little or does not hold
    red,    // contradicted: revoked, or not signed by the vendor it claims
};
template <>
struct RawValues<GenuineTier> {
    static constexpr std::array<std::pair<GenuineTier, std::string_view>, 4> table = {{
        {GenuineTier::gold, "gold"},
        {GenuineTier::green, "green"},
        {GenuineTier::amber, "amber"},
        {GenuineTier::red, "red"},
    }};
};

namespace signer_kind {
struct DeveloperID {
    std::string name;
    bool operator==(const DeveloperID&) const = default;
};
struct Other {
    std::string name;
    bool operator==(const Other&) const = default;
};
struct AppStore {
    bool operator==(const AppStore&) const = default;
};
struct Apple {
    bool operator==(const Apple&) const = default;
};
struct AdHoc {
    bool operator==(const AdHoc&) const = default;
};
struct Unsigned {
    bool operator==(const Unsigned&) const = default;
};
}  // namespace signer_kind
struct SignerKind {
    std::variant<signer_kind::DeveloperID, signer_kind::Other, signer_kind::AppStore, signer_kind::Apple,
                 signer_kind::AdHoc, signer_kind::Unsigned>
        value = signer_kind::Unsigned{};
    bool operator==(const SignerKind&) const = default;
};

namespace signature_state {
struct Valid {
    bool operator==(const Valid&) const = default;
};
struct Unsigned {
    bool operator==(const Unsigned&) const = default;
};
struct Revoked {
    bool operator==(const Revoked&) const = default;
};
struct Broken {
    bool operator==(const Broken&) const = default;
};
struct CouldNotCheck {
    std::int32_t status = 0;  // the OSStatus that could not be interpreted
    bool operator==(const CouldNotCheck&) const = default;
};
}  // namespace signature_state
struct SignatureState {
    std::variant<signature_state::Valid, signature_state::Unsigned, signature_state::Revoked, signature_state::Broken,
                 signature_state::CouldNotCheck>
        value = signature_state::Valid{};
    bool operator==(const SignatureState&) const = default;
};

// Where a copy came from.
struct DownloadRecord {
    std::optional<std::string> agent;    // the app that downloaded it
    std::optional<TimePoint> date;       // when it was quarantined
    std::optional<std::string> url;      // the file's
    std::optional<std::string> pageURL;  // the page it came from
    bool operator==(const DownloadRecord&) const = default;
};

// One "com.apple.quarantine" attribute: "flags;hex time;agent;event id".
struct QuarantineInfo {
    std::string flags;  // hexadecimal, as stored
    std::optional<TimePoint> date;
    std::optional<std::string> agent;
    std::optional<std::string> eventID;  // an upper-case UUID
    bool operator==(const QuarantineInfo&) const = default;
};

// What the online check adds.
struct OnlineGenuineResult {
    SignatureState signature;
    bool notarized = false;
    std::optional<bool> gatekeeperAccepted;
    std::optional<std::string> gatekeeperSource;
    bool operator==(const OnlineGenuineResult&) const = default;
};

// The offline findings on one app; cached while its GenuineCacheKey stands.
struct GenuineReport {
    std::string appPath;
    SignerKind signer;
    std::optional<std::string> teamID;
    SignatureState signature;
    bool stapledTicket = false;  // the bundle holds Contents/CodeResources
    bool notarizedOffline = false;
    VendorMatch vendor;
    std::optional<DownloadRecord> download;

    std::optional<GenuineTier> tier() const;
    // An online revocation outranks everything; an online notarisation may lift the tier. Other
    // online states (broken, unchecked) are ignored: the offline signature stands.
    std::optional<GenuineTier> tier(const std::optional<OnlineGenuineResult>& withOnline) const;
    bool operator==(const GenuineReport&) const = default;
};

// What must stay unchanged for a cached report to stand. The inode catches a copy that restores
// the same dates.
struct GenuineCacheKey {
    std::uint64_t inode = 0;  // the bundle folder's
    double bundleMTime = 0;   // seconds since 1970, nanoseconds kept
    double infoMTime = 0;     // Contents/Info.plist; 0 when missing
    double sealMTime = 0;     // Contents/_CodeSignature/CodeResources; 0 when missing

    // The key of the bundle at `path` as it stands (links not followed); none when the bundle
    // cannot be reached.
    static std::optional<GenuineCacheKey> of(const std::string& path, const Facts& facts = Facts::real());
    bool operator==(const GenuineCacheKey&) const = default;
};

// JSON forms. A case with payload is an object of one key named after the case
// ({"developerID":{"name":…}}, {"couldNotCheck":{"_0":-67050}}, {"valid":{}}); optional fields
// that are none are left out; dates are ISO 8601 in UTC.
nlohmann::ordered_json toJSON(const SignerKind& signer);
nlohmann::ordered_json toJSON(const SignatureState& state);
nlohmann::ordered_json toJSON(const DownloadRecord& record);
nlohmann::ordered_json toJSON(const GenuineReport& report);  // the tier is not stored
nlohmann::ordered_json toJSON(const OnlineGenuineResult& result);
nlohmann::ordered_json toJSON(const GenuineCacheKey& key);
std::optional<SignerKind> signerKindFromJSON(const nlohmann::json& value);
std::optional<SignatureState> signatureStateFromJSON(const nlohmann::json& value);
std::optional<DownloadRecord> downloadRecordFromJSON(const nlohmann::json& value);
std::optional<GenuineReport> genuineReportFromJSON(const nlohmann::json& value);
std::optional<OnlineGenuineResult> onlineGenuineResultFromJSON(const nlohmann::json& value);
std::optional<GenuineCacheKey> genuineCacheKeyFromJSON(const nlohmann::json& value);

// The first rule that applies decides: a vendor mismatch is red whatever else holds; an
// unchecked signature has no tier; revoked is red; unsigned or broken amber; then by signer.
// Only `matches` lifts a tier to gold.
std::optional<GenuineTier> genuineTier(const SignerKind& signer, const SignatureState& signature, bool notarized,
                                       const VendorMatch& vendor);

// The kind of signer from the leaf certificate's common name.
SignerKind signerKind(const std::optional<std::string>& commonName, bool hasSignature);
// The verdict of a code-signing OSStatus.
SignatureState signatureState(std::int32_t status);

// 8-4-4-4-12 hexadecimal digits, 36 characters in all.
bool isUUID(std::string_view text);
// None when there are fewer than two fields or the flags are not hexadecimal; an unreadable
// time leaves the date out and the record standing.
std::optional<QuarantineInfo> parseQuarantine(std::string_view text);
// The non-empty strings of the property list (XML or binary) array of "kMDItemWhereFroms".
std::vector<std::string> parseWhereFroms(std::string_view data);

struct GatekeeperAssessment {
    std::optional<bool> accepted;
    std::optional<std::string> source;
    bool operator==(const GatekeeperAssessment&) const = default;
};
// spctl --assess -vv text (its verdict line and "source=" line); the last verdict line wins.
GatekeeperAssessment parseGatekeeperAssessment(std::string_view text);

// The text when it is an http, https or ftp URL with a host; none otherwise, so that file:,
// data: and script URLs never reach the user interface.
std::optional<std::string> displayableDownloadURL(const std::optional<std::string>& text);

// "Signed by Google LLC · notarised" and the like: one line on the signer and the worst thing
// known of the signature.
std::string genuineSignerSummary(const GenuineReport& report, std::optional<bool> notarizedOnline, bool revokedOnline);

}  // namespace orvane
