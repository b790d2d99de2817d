#include "core/relocation/auto_move.hpp"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"
#include "core/safety/protection.hpp"

namespace orvane {
namespace {

constexpr std::int64_t kBytesPerGB = 1'000'000'000;
constexpr std::int64_t kSecondsPerDay = 86'400;
// Further from now than any date a record may hold (years 1 to 9999), yet far inside the clock's
// range, so a rule with an absurd number of days behaves as "no date qualifies" or "every date
// does" instead of wrapping the cut-off round.
constexpr std::int64_t kDaysBeyondEveryDate = 4'000'000;

// After protectKey: the same place, or one inside the other; "/" holds every path.
bool overlaps(const std::string& a, const std::string& b) {
    if (a == b || a == "/" || b == "/") return true;
    const auto inside = [](const std::string& child, const std::string& parent) {
        return child.size() > parent.size() && child.starts_with(parent) && child[parent.size()] == '/';
    };
    return inside(a, b) || inside(b, a);
}

}  // namespace

std::string_view label(AutoMoveRule::Kind kind) {
    switch (kind) {
        case AutoMoveRule::Kind::aiModels: return "AI models";
        case AutoMoveRule::Kind::media: return "Media and big old files";
        case AutoMoveRule::Kind::devFolders: return "Developer folders";
    }
    return {};
}

nlohmann::ordered_json toJSON(const AutoMoveRule& rule) {
    nlohmann::ordered_json kinds = nlohmann::ordered_json::array();
    for (auto kind : AutoMoveRule::allCases)
        if (rule.kinds.contains(kind)) kinds.push_back(rawValue(kind));
    return {{"version", rule.version},       {"enabled", rule.enabled},
            {"thresholdGB", rule.thresholdGB}, {"kinds", std::move(kinds)},
            {"unusedDays", rule.unusedDays},   {"driveName", rule.driveName},
            {"moveWithoutAsking", rule.moveWithoutAsking}};
}

std::string AutoMoveRule::encoded() const {
    return toJSON(*this).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::optional<AutoMoveRule> AutoMoveRule::decode(std::string_view data) {
    auto parsed = parseJSONStrictly(data);
    if (!parsed.value) return std::nullopt;
    JSONFields fields(*parsed.value, "the automatic-move rule");
    AutoMoveRule rule;
    // A version above the current one, however large, is a later release's rule.
    rule.version = static_cast<int>(fields.wholeNumber("version", INT_MIN, currentVersion));
    rule.enabled = fields.boolean("enabled");
    rule.thresholdGB = fields.wholeNumber("thresholdGB", INT64_MIN, INT64_MAX);
    rule.kinds.clear();
    const auto* kinds = fields.value("kinds");
    if (kinds && !kinds->is_array()) fields.fail("kinds", "must be an array");
    if (kinds && kinds->is_array())
        for (const auto& kind : *kinds) {
            const auto known = kind.is_string() ? fromRawValue<Kind>(kind.get_ref<const std::string&>()) : std::nullopt;
            if (!known) fields.fail("kinds", "must hold only " + quotedRawValues<Kind>());
            else rule.kinds.insert(*known);
        }
    rule.unusedDays = fields.wholeNumber("unusedDays", INT64_MIN, INT64_MAX);
    rule.driveName = fields.string("driveName");
    rule.moveWithoutAsking = fields.boolean("moveWithoutAsking");
    if (!fields) return std::nullopt;
    return rule;
}

nlohmann::ordered_json toJSON(const AutoMoveRun& run) {
    return {{"runID", run.runID},
            {"date", secondsSinceReferenceDate(run.date)},
            {"driveName", run.driveName},
            {"destinations", run.destinations},
            {"bytes", run.bytes},
            {"withoutAsking", run.withoutAsking}};
}

std::optional<AutoMoveRun> AutoMoveRun::decode(const nlohmann::json& value) {
    JSONFields fields(value, "an automatic-move run");
    AutoMoveRun run{fields.string("runID"),      fields.date("date"),      fields.string("driveName"),
                    fields.strings("destinations"), fields.byteCount("bytes"), fields.boolean("withoutAsking")};
    if (!fields) return std::nullopt;
    return run;
}

bool autoMoveDue(const AutoMoveRule& rule, std::int64_t free) {
    if (!rule.enabled || rule.driveName.empty() || free < 0 || rule.thresholdGB <= 0) return false;
    // A threshold beyond what 64 bits of bytes can count is above any free space.
    if (rule.thresholdGB > INT64_MAX / kBytesPerGB) return true;
    return free < rule.thresholdGB * kBytesPerGB;
}

std::int64_t autoMoveWanted(const AutoMoveRule& rule, std::int64_t free) {
    // In floating point and in this order, so that the default rule aims at exactly 33 GB.
    const double aim = std::trunc(static_cast<double>(rule.thresholdGB) * 1.1 * 1e9);
    const std::int64_t aimBytes = aim >= 0x1p63 ? INT64_MAX : aim < -0x1p63 ? INT64_MIN : static_cast<std::int64_t>(aim);
    std::int64_t wanted = 0;
    if (__builtin_sub_overflow(aimBytes, std::max<std::int64_t>(free, 0), &wanted)) return INT64_MIN;
    return wanted;
}

std::optional<AutoMoveRule::Kind> autoMoveKind(const SpaceItem& item) {
    using Kind = AutoMoveRule::Kind;
    if (!item.id.starts_with('/')) return std::nullopt;
    const std::string_view category = item.category;
    if (category == catAI && item.suggested == Suggested::move) return Kind::aiModels;
    if ((category == catMedia || category == catOld) && item.suggested == Suggested::move) return Kind::media;
    if ((category == catEnv || category == catDev) && item.suggested != Suggested::delete_ && item.isDir)
        return Kind::devFolders;
    return std::nullopt;
}

std::vector<SpaceItem> autoMoveCandidates(const std::vector<SpaceItem>& items, const AutoMoveRule& rule,
                                          std::int64_t free,
                                          const std::function<bool(const std::string&)>& isProtected,
                                          TimePoint now) {
    const std::int64_t days = std::clamp(rule.unusedDays, -kDaysBeyondEveryDate, kDaysBeyondEveryDate);
    const TimePoint cutOff = now - std::chrono::seconds(days * kSecondsPerDay);
    const std::int64_t wanted = autoMoveWanted(rule, free);

    std::vector<SpaceItem> qualifying;
    for (const auto& item : items) {
        const auto kind = autoMoveKind(item);
        if (!kind || !rule.kinds.contains(*kind) || item.sizeBytes < 1) continue;
        if (!item.lastUsed || *item.lastUsed >= cutOff) continue;
        if (isProtected(item.id)) continue;
        qualifying.push_back(item);
    }
    std::stable_sort(qualifying.begin(), qualifying.end(),
                     [](const SpaceItem& a, const SpaceItem& b) { return a.sizeBytes > b.sizeBytes; });

    std::vector<SpaceItem> chosen;
    std::vector<std::string> chosenKeys;
    std::int64_t total = 0;
    for (auto& item : qualifying) {
        if (chosen.size() == autoMoveMaxItems) break;
        // A smaller item further down may still fit under the limit.
        if (item.sizeBytes > autoMoveMaxBytes - total) continue;
        std::string key = protectKey(item.id);
        if (std::any_of(chosenKeys.begin(), chosenKeys.end(), [&](const auto& k) { return overlaps(key, k); })) continue;
        total += item.sizeBytes;
        chosenKeys.push_back(std::move(key));
        chosen.push_back(std::move(item));
        if (total >= wanted) break;
    }
    return chosen;
}

StoredAutoMoveRule loadAutoMoveRule(const std::string& path, const Facts& facts) {
    const std::string shown = "The automatic-move rule at " + path;
    auto read = facts.read(path, kAutoMoveRuleMaxBytes);
    if (!read.bytes) {
        if (read.failure == ReadFailure::missing) return {path, AutoMoveRule{}, false, {}};
        return {path, std::nullopt, true,
                shown + " " + std::string(readFailureClause(read.failure)) + "; it is not used and is left as it is."};
    }
    auto rule = AutoMoveRule::decode(*read.bytes);
    if (!rule)
        return {path, std::nullopt, true,
                shown + " is damaged or from a newer release; it is not used and is left as it is."};
    return {path, std::move(*rule), true, {}};
}

}  // namespace orvane
