// Which signing teams belong to which vendor, and whether an app's name, identifier and team
// agree with that. A signature proves who signed, not who should have; a well-known name signed
// by someone else is the one finding worth a red tier by itself. Pure data and logic.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane {

struct KnownVendor {
    std::string vendor;
    std::set<std::string> teamIDs;
    std::set<std::string> bundleIDs;  // compared exactly
    std::set<std::string> names;      // compared without case
    // The team id was confirmed from a signed copy of the app. Only such a row may call an app
    // fake: an unconfirmed one may merely be out of date.
    bool verified = false;
    bool operator==(const KnownVendor&) const = default;
};

namespace vendor_match {
struct Matches {
    std::string vendor;
    std::string teamID;
    bool operator==(const Matches&) const = default;
};
struct MatchesUnverified {
    std::string vendor;
    std::string teamID;
    bool operator==(const MatchesUnverified&) const = default;
};
struct Mismatch {
    std::string vendor;
    std::vector<std::string> expected;  // sorted
    std::optional<std::string> actual;  // none: the copy carries no team at all
    bool operator==(const Mismatch&) const = default;
};
struct NotListed {
    bool operator==(const NotListed&) const = default;
};
}  // namespace vendor_match

struct VendorMatch {
    std::variant<vendor_match::Matches, vendor_match::MatchesUnverified, vendor_match::Mismatch,
                 vendor_match::NotListed>
        value = vendor_match::NotListed{};
    bool operator==(const VendorMatch&) const = default;
};

// {"matches":{"vendor":…,"teamID":…}}, {"matchesUnverified":{…}},
// {"mismatch":{"vendor":…,"expected":[…],"actual":…}} (actual left out when none), {"notListed":{}}.
nlohmann::ordered_json toJSON(const VendorMatch& match);
std::optional<VendorMatch> vendorMatchFromJSON(const nlohmann::json& value);

// The curated table: 83 rows, the verified ones first. Order matters: the first row that
// matches wins.
const std::vector<KnownVendor>& knownVendors();

// The first row whose bundle identifier or name the app carries. The name is trimmed of spaces
// and tabs and loses a final ".app" before it is compared.
std::optional<KnownVendor> knownVendor(std::string_view appName, std::string_view bundleID,
                                       const std::vector<KnownVendor>& vendors = knownVendors());

VendorMatch vendorMatch(std::string_view appName, std::string_view bundleID, const std::optional<std::string>& teamID,
                        const std::vector<KnownVendor>& vendors = knownVendors());

}  // namespace orvane
