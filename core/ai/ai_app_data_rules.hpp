// What each known AI app keeps and where the pointers to it live: one row per product, and the
// choice of the row that knows an app. Data only; the offers are made in ai_app_data_offers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/ai/ai_app_data.hpp"

namespace orvane {

// A place a product keeps data. Paths are written "~/..." (the user's home), "{home}..." (the
// product's home) or absolute.
struct AIDataLocation {
    std::string path;
    std::string note;
    bool shared = false;  // other tools use it too: offered, never preselected
    bool operator==(const AIDataLocation&) const = default;
};

// One product.
struct AIAppDataRule {
    std::string product = {};    // display name
    std::string ecosystem = {};  // two apps with the same key share data
    std::vector<std::string> bundleIDs = {};
    std::vector<std::string> teamIDs = {};
    std::vector<std::string> appNames = {};
    std::optional<std::string> defaultHome = std::nullopt;  // the product's home folder
    std::vector<AIDataLocation> locations = {};
    std::vector<AIDataPointer> pointers = {};
    std::string source = {};  // where the facts came from, for maintainers; never shown
    bool verified = false;  // the row was checked against the product itself
    bool operator==(const AIAppDataRule&) const = default;
};

// The nine products, in the order they are tried.
const std::vector<AIAppDataRule>& aiAppDataRules();

// The rule that knows an app: the first with its bundle id (case ignored), else, when a team id is
// given, the first that lists exactly that team, else the first with its app name (case ignored).
std::optional<AIAppDataRule> aiAppDataRule(std::string_view bundleID, const std::optional<std::string>& teamID,
                                           std::string_view appName,
                                           const std::vector<AIAppDataRule>& rules = aiAppDataRules());

}  // namespace orvane
