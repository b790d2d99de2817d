// What macOS's "System Data" figure is made of, as far as anything can tell: each part with its
// size, how far that size may be trusted and what the user can do; the rest stays visible as
// unexplained instead of being hidden.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/storage/storage_confidence.hpp"

namespace orvane {

namespace system_data_action {
struct Janitor {
    std::string id;  // the vendor janitor that does the clean-up, "simctl"
    bool operator==(const Janitor&) const = default;
};
struct OpenApp {
    std::string bundleID;
    std::string name;
    bool operator==(const OpenApp&) const = default;
};
struct OpenSettings {
    std::string url;
    std::string label;  // the button's text
    bool operator==(const OpenSettings&) const = default;
};
struct ThinSnapshots {
    bool operator==(const ThinSnapshots&) const = default;
};
struct SpotlightGuide {
    bool operator==(const SpotlightGuide&) const = default;
};
struct FullDiskAccess {
    bool operator==(const FullDiskAccess&) const = default;
};
}  // namespace system_data_action

// What the user can do about a line.
using SystemDataAction = std::variant<system_data_action::Janitor, system_data_action::OpenApp,
                                      system_data_action::OpenSettings, system_data_action::ThinSnapshots,
                                      system_data_action::SpotlightGuide, system_data_action::FullDiskAccess>;
// "janitor", "openApp", "openSettings", "thinSnapshots", "spotlightGuide", "fullDiskAccess".
std::string_view caseName(const SystemDataAction& action);

struct SystemDataLine {
    std::string id;
    std::string label;
    std::optional<std::int64_t> bytes;  // none: unknown
    StorageConfidence confidence = StorageConfidence::measured;
    std::string detail;
    bool inScan = false;    // the scan already counted it
    bool overlaps = false;  // part of it is counted by other lines
    std::optional<SystemDataAction> action;

    // Whether its bytes come off the unexplained rest: only what nothing else has counted.
    bool subtracted() const { return !inScan && !overlaps; }
    bool operator==(const SystemDataLine&) const = default;
};

struct SystemDataReport {
    std::int64_t used = 0;
    std::int64_t scanned = 0;
    std::vector<SystemDataLine> lines;
    std::optional<std::int64_t> unexplained;

    // Asks the home's volume, tmutil, diskutil, lsof and du (through `facts`) for every part.
    // `covered` says whether the scan already counted a path or a key ("container:disk3s5",
    // "zombies"); `unreadable` is how many folders the scan could not read and `fixable` whether
    // Full Disk Access would help; `simulatorBytes` is the caller's measure of the simulators.
    // Blocks for as long as its tools run (a dozen, du on big folders among them). Never throws.
    static SystemDataReport measure(std::int64_t scanned, const std::function<bool(const std::string&)>& covered,
                                    int unreadable, bool fixable, std::optional<std::int64_t> simulatorBytes,
                                    const std::string& home, const Facts& facts = Facts::real());
    bool operator==(const SystemDataReport&) const = default;
};

// `used` less `scanned` and the bytes of the subtracted lines (each taken as at least 0); none
// when `used` is below 1, `scanned` below 0, or the parts add up to more than `used`: an
// unexplained rest is never negative.
std::optional<std::int64_t> systemDataUnexplained(std::int64_t used, std::int64_t scanned,
                                                  const std::vector<SystemDataLine>& lines);

// A System Data total split so that the parts always add up: total at least 0, purgeable within
// the total, swap within what remains, and the rest the remainder.
struct SystemDataBreakdown {
    std::int64_t total = 0;
    std::int64_t purgeable = 0;
    std::int64_t swap = 0;
    std::int64_t rest = 0;

    SystemDataBreakdown(std::int64_t total, std::int64_t purgeable, std::int64_t swap);
    bool operator==(const SystemDataBreakdown&) const = default;
};

// {"id","label","bytes","confidence","detail","inScan","overlaps","subtracted","action"}: an
// unknown size and no action are null, the confidence is its raw value, an action is
// {"caseName": {payload}} such as {"thinSnapshots":{}}.
nlohmann::ordered_json toJSON(const SystemDataLine& line);
// {"used","scanned","lines","unexplained"}
nlohmann::ordered_json toJSON(const SystemDataReport& report);

}  // namespace orvane
