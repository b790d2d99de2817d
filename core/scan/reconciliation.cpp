#include "core/scan/reconciliation.hpp"

#include <algorithm>
#include <charconv>
#include <map>

#include "core/common/byte_counts.hpp"
#include "core/common/checked.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {
namespace {

// A dangling link is still something on disk that the user may want to act on.
bool isThere(const std::string& path, const Facts& facts) {
    if (facts.exists(path)) return true;
    auto entry = facts.lstat(path);
    return entry && entry->isSymlink();
}

std::string itemsWord(std::int64_t count) { return count == 1 ? "item" : "items"; }

std::string counted(std::int64_t count) { return std::to_string(count) + " " + itemsWord(count); }

std::string replacingAll(std::string text, std::string_view what, std::string_view with) {
    if (what.empty()) return text;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

// A whole decimal number with an optional sign, as the platform's integer parsing takes it.
bool isDecimalInteger(std::string_view text) {
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    if (text.empty()) return false;
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::int64_t Reconciliation::lostBytes() const {
    std::int64_t lost = 0;
    for (const auto& item : vanished) lost = addBytesOrUnknown(lost, std::max<std::int64_t>(item.sizeBytes, 0));
    return lost;
}

Reconciliation reconcileWithDisk(const std::vector<SpaceItem>& items, const Facts& facts) {
    Reconciliation result;
    for (const auto& item : items) {
        if (item.extra.empty()) {
            if (!item.id.starts_with('/') || isThere(item.id, facts))
                result.present.push_back(item);
            else
                result.vanished.push_back(item);
            continue;
        }
        if (std::none_of(item.extra.begin(), item.extra.end(), [](const std::string& e) { return e.starts_with('/'); })) {
            result.present.push_back(item);
            continue;
        }
        std::vector<std::string> left;
        for (const auto& member : item.extra)
            if (isThere(member, facts)) left.push_back(member);
        if (left.empty())
            result.vanished.push_back(item);
        else if (left.size() == item.extra.size())
            result.present.push_back(item);
        else
            result.present.push_back(prunedRollup(item, left, facts));
    }
    return result;
}

SpaceItem prunedRollup(const SpaceItem& item, const std::vector<std::string>& left, const Facts& facts) {
    SpaceItem pruned = item;
    pruned.title = rollupTitle(item.title, static_cast<std::int64_t>(left.size()));
    pruned.extra = left;
    pruned.lastUsed.reset();

    std::int64_t measured = 0;
    bool anyMeasured = false;
    for (const auto& member : left) {
        const std::int64_t bytes = duSize(member, facts);
        if (bytes < 0) continue;
        measured = checkedAdd(measured, bytes);
        anyMeasured = true;
    }
    if (anyMeasured) {
        pruned.sizeBytes = measured;
    } else if (left.empty()) {
        pruned.sizeBytes = 0;
    } else {
        double factor = static_cast<double>(left.size());
        if (!item.extra.empty()) factor /= static_cast<double>(item.extra.size());
        const double estimate = factor * static_cast<double>(std::max<std::int64_t>(item.sizeBytes, 0));
        // Only a group without members can scale its size up; keep that within what a record holds.
        pruned.sizeBytes = estimate >= static_cast<double>(kMaxByteCount) ? kMaxByteCount
                                                                           : static_cast<std::int64_t>(estimate);
    }
    return pruned;
}

std::set<std::string> prunedSelection(const std::set<std::string>& selected, const std::vector<SpaceItem>& before,
                                      const std::vector<SpaceItem>& after) {
    auto byID = [](const std::vector<SpaceItem>& items) {
        std::map<std::string, const SpaceItem*> index;
        for (const auto& item : items) index.try_emplace(item.id, &item);
        return index;
    };
    const auto was = byID(before), is = byID(after);
    std::set<std::string> kept;
    for (const auto& id : selected) {
        auto a = was.find(id), b = is.find(id);
        if (a == was.end() || b == is.end()) continue;
        if (a->second->sizeBytes == b->second->sizeBytes && a->second->extra == b->second->extra) kept.insert(id);
    }
    return kept;
}

std::string rollupTitle(std::string_view title, std::int64_t count) {
    if (!title.ends_with(')')) return std::string(title);
    const auto open = title.rfind(" (");
    if (open == std::string_view::npos) return std::string(title);
    const std::string_view inside = title.substr(open + 2, title.size() - 1 - (open + 2));
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0; at < inside.size();) {
        const auto blank = inside.find(' ', at);
        const auto end = blank == std::string_view::npos ? inside.size() : blank;
        if (end > at) pieces.push_back(inside.substr(at, end - at));
        at = end + 1;
    }
    if (pieces.size() != 2 || !isDecimalInteger(pieces[0]) || (pieces[1] != "item" && pieces[1] != "items"))
        return std::string(title);
    return std::string(title.substr(0, open)) + " (" + counted(count) + ")";
}

std::string rollupMembersLine(std::int64_t count) {
    return counted(count) + " — press ⓘ to see " + (count == 1 ? "it" : "them");
}

RollupOutcome rollupOutcome(std::string_view id, std::string_view title, std::int64_t total, std::int64_t moved,
                            const std::vector<KeptMember>& kept, bool permanently, std::string_view home) {
    const std::string shortTitle = rollupTitle(title, total);
    const std::string done = permanently ? "removed" : "moved to the Trash";
    const auto n = static_cast<std::int64_t>(kept.size());
    const std::string items = counted(n);
    const std::string of = std::to_string(moved) + " of " + std::to_string(total);

    RollupOutcome outcome;
    outcome.ledger.push_back("ROLLUP " + std::string(id) + " " + of + " " + done + ", " + std::to_string(n) + " kept");
    for (const auto& member : kept) outcome.ledger.push_back("KEPT " + member.path + " — " + member.reason);

    outcome.report.push_back("✓ " + shortTitle + ": " + of +
                             (permanently ? " removed — space freed" : " moved to the Trash — recoverable until you empty it"));
    if (n > 0)
        outcome.report.push_back("• " + shortTitle + ": " + items + " couldn't be " + (permanently ? "removed" : "moved") +
                                 " and " + (n == 1 ? "stays" : "stay") + " listed:");
    for (const auto& member : kept)
        outcome.report.push_back("    " + lastPathComponent(member.path) + " — " + member.reason + " (" +
                                 replacingAll(member.path, home, "~") + ")");

    if (n > 0) {
        std::string names;
        for (std::size_t i = 0; i < kept.size() && i < 3; ++i) {
            if (i > 0) names += ", ";
            names += lastPathComponent(kept[i].path);
        }
        if (n >= 4) names += " and " + std::to_string(n - 3) + " more";
        outcome.keptSummary = shortTitle + ": " + items + " couldn't be " + done + ": " + names + ". " +
                              (n == 1 ? "It stays" : "They stay") + " in Leftovers.";
    }
    return outcome;
}

bool isCloudProviderPath(std::string_view path, std::string_view home) {
    if (!path.starts_with(home)) return false;
    const std::string_view rest = path.substr(home.size());
    return rest.starts_with("/Library/Mobile Documents/") || rest.starts_with("/Library/CloudStorage/");
}

bool isCloudOnlyFile(const platform::FileFacts& st, std::string_view path, const std::function<bool()>& isUbiquitous,
                     std::string_view home) {
    if (st.size < 1) return false;
    if (st.allocatedBytes >= st.size / 10) return false;
    if (st.flags & platform::kFlagCompressed) return false;
    if (isCloudProviderPath(path, home)) return true;
    return isUbiquitous && isUbiquitous();
}

std::optional<std::vector<std::string>> claimEvictionCredit(const std::string& path,
                                                            const std::vector<std::string>& credited, std::int64_t cap) {
    if (std::find(credited.begin(), credited.end(), path) != credited.end()) return std::nullopt;
    std::vector<std::string> claimed = credited;
    claimed.push_back(path);
    const auto keep = static_cast<std::size_t>(std::max<std::int64_t>(cap, 0));
    if (claimed.size() > keep) claimed.erase(claimed.begin(), claimed.end() - static_cast<std::ptrdiff_t>(keep));
    return claimed;
}

std::vector<std::string> releaseEvictionCredit(const std::string& path, const std::vector<std::string>& credited) {
    std::vector<std::string> rest;
    for (const auto& entry : credited)
        if (entry != path) rest.push_back(entry);
    return rest;
}

}  // namespace orvane
