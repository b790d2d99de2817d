// Automatic moves: the user's rule for moving big unused data to a named drive when free space
// runs low, the test of whether a move is due, and the choice of what goes. Pure logic: free
// space, the scan's items, the protection test and the clock are handed in.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

struct AutoMoveRule {
    enum class Kind { aiModels, media, devFolders };
    static constexpr std::array<Kind, 3> allCases = {Kind::aiModels, Kind::media, Kind::devFolders};
    static constexpr int currentVersion = 1;

    int version = currentVersion;
    bool enabled = false;
    std::int64_t thresholdGB = 30;  // decimal gigabytes free below which a move is due
    std::set<Kind> kinds = {Kind::aiModels, Kind::media};
    std::int64_t unusedDays = 90;
    std::string driveName;
    bool moveWithoutAsking = false;

    // None for anything that does not decode, for a missing key, and for a rule written by a
    // later release (a version above currentVersion); older versions pass.
    static std::optional<AutoMoveRule> decode(std::string_view data);
    // Compact, keys in the order of the fields, kinds in the order of allCases.
    std::string encoded() const;
    bool operator==(const AutoMoveRule&) const = default;
};

template <>
struct RawValues<AutoMoveRule::Kind> {
    static constexpr std::array<std::pair<AutoMoveRule::Kind, std::string_view>, 3> table = {
        {{AutoMoveRule::Kind::aiModels, "aiModels"},
         {AutoMoveRule::Kind::media, "media"},
         {AutoMoveRule::Kind::devFolders, "devFolders"}}};
};

// "AI models", "Media and big old files", "Developer folders".
std::string_view label(AutoMoveRule::Kind kind);

// {"version","enabled","thresholdGB","kinds","unusedDays","driveName","moveWithoutAsking"}
nlohmann::ordered_json toJSON(const AutoMoveRule& rule);

// The record of one run of the mover.
struct AutoMoveRun {
    std::string runID;
    TimePoint date;
    std::string driveName;
    std::vector<std::string> destinations;  // the paths written on the drive
    std::int64_t bytes = 0;
    bool withoutAsking = false;

    // Every key required; the date in seconds since 2001-01-01, as the ledger's records.
    static std::optional<AutoMoveRun> decode(const nlohmann::json& value);
    bool operator==(const AutoMoveRun&) const = default;
};
// {"runID","date","driveName","destinations","bytes","withoutAsking"}
nlohmann::ordered_json toJSON(const AutoMoveRun& run);

inline constexpr std::size_t autoMoveMaxItems = 10;
inline constexpr std::int64_t autoMoveMaxBytes = 200'000'000'000;

// A negative `free` is unknown free space, and never makes a move due.
bool autoMoveDue(const AutoMoveRule& rule, std::int64_t free);
// What a run aims to free: ten per cent above the threshold, less what is free now (unknown
// counts as nothing free). Zero or negative when free space is already above that.
std::int64_t autoMoveWanted(const AutoMoveRule& rule, std::int64_t free);
// None for a pseudo item (an `id` that is not a path) and for anything the rule never moves.
std::optional<AutoMoveRule::Kind> autoMoveKind(const SpaceItem& item);
// Largest first, at most autoMoveMaxItems and autoMoveMaxBytes, never an item inside another
// chosen one, stopping once the wanted amount is reached. An item with no date of last use is
// never chosen. At least one item is chosen when any qualifies: the caller asked autoMoveDue.
std::vector<SpaceItem> autoMoveCandidates(const std::vector<SpaceItem>& items, const AutoMoveRule& rule,
                                          std::int64_t free,
                                          const std::function<bool(const std::string&)>& isProtected,
                                          TimePoint now);

// The rule as found in its file. A missing file is the default rule. A file that is there but
// gives no rule (unreadable, too large, damaged, or from a later release) is not used and must
// never be overwritten: the user may want it back from a newer release.
struct StoredAutoMoveRule {
    std::string path;
    std::optional<AutoMoveRule> rule;  // none when unusable
    bool present = false;              // a file was there
    std::string problem;               // a sentence naming the file; empty when usable
};
inline constexpr std::uint64_t kAutoMoveRuleMaxBytes = 1024 * 1024;
StoredAutoMoveRule loadAutoMoveRule(const std::string& path, const Facts& facts = Facts::real());

}  // namespace orvane
