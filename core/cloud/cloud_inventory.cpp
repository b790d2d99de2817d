#include "core/cloud/cloud_inventory.hpp"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "core/common/checked.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/common/uuid.hpp"

namespace orvane {

namespace {

constexpr std::int64_t kSmallestGroupedFile = 1'000'000;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLowerAlnum(char c) { return isDigit(c) || (c >= 'a' && c <= 'z'); }

// Where a run of `accept` characters ending at `end` starts.
template <typename Accept>
std::size_t runStart(std::string_view text, std::size_t end, Accept accept) {
    while (end > 0 && accept(text[end - 1])) --end;
    return end;
}

// The three end marks of a copy, each cut at its leftmost match as a regular expression search
// would: "\s*\(\d+\)$", then "\s*copy(\s+\d+)?$", then "[-_][a-z0-9]+$".
std::string_view withoutNumberInParentheses(std::string_view text) {
    if (text.empty() || text.back() != ')') return text;
    const std::size_t digits = runStart(text, text.size() - 1, isDigit);
    if (digits == text.size() - 1 || digits == 0 || text[digits - 1] != '(') return text;
    return text.substr(0, runStart(text, digits - 1, isSpace));
}

std::string_view withoutCopyMark(std::string_view text) {
    std::size_t end = text.size();
    const std::size_t digits = runStart(text, end, isDigit);
    if (digits < end) {
        const std::size_t spaces = runStart(text, digits, isSpace);
        if (spaces < digits && text.substr(0, spaces).ends_with("copy")) end = spaces;
    }
    if (!text.substr(0, end).ends_with("copy")) return text;
    return text.substr(0, runStart(text, end - 4, isSpace));
}

std::string_view withoutSuffixWord(std::string_view text) {
    const std::size_t word = runStart(text, text.size(), isLowerAlnum);
    if (word == text.size() || word == 0 || (text[word - 1] != '-' && text[word - 1] != '_')) return text;
    return text.substr(0, word - 1);
}

std::string sizeText(std::int64_t bytes) { return bytes < 0 ? "…" : fmtBytes(bytes); }

}  // namespace

std::string_view rawValue(DupeConfidence confidence) {
    return confidence == DupeConfidence::high ? "High confidence" : "Probable";
}

std::string_view explanation(DupeConfidence confidence) {
    return confidence == DupeConfidence::high
               ? "Same size, same timestamp, and the names match apart from a copy marker. As close to certain as "
                 "this can get without downloading both."
               : "Same size and same timestamp, but the names differ — it could be the same file saved twice, or a "
                 "coincidence.";
}

std::string_view verb(CloudAction action) {
    return action == CloudAction::releaseLocal ? "Release local copy" : "Delete from cloud";
}

std::string_view frees(CloudAction action) {
    return action == CloudAction::releaseLocal ? "space on this Mac" : "space in your cloud plan";
}

std::string CloudDupeGroup::id() const { return files.empty() ? freshUUID() : files.front().path; }

std::int64_t CloudDupeGroup::reclaimable() const {
    if (files.empty()) return 0;
    return checkedMul(files.front().bytes, static_cast<std::int64_t>(files.size()) - 1);
}

std::vector<DupeSignal> CloudDupeGroup::signals() const {
    const auto n = static_cast<std::int64_t>(files.size());
    const std::int64_t size = files.empty() ? 0 : files.front().bytes;
    std::vector<DupeSignal> out;
    out.push_back({"Identical size", true,
                   "All " + std::to_string(n) + " are exactly " + sizeText(size) + " — to the byte."});
    out.push_back({"Identical timestamp", true,
                   files.empty() ? "All modified at the same moment."
                                 : "All modified " + fmtMediumDateShortTime(files.front().modified) + "."});

    std::set<std::string> stems, parents;
    for (const auto& file : files) {
        stems.insert(CloudInventory::normalisedStem(file.path));
        parents.insert(deletingLastPathComponent(file.path));
    }
    if (stems.size() == 1)
        out.push_back({"Names match", true,
                       "Apart from a copy marker (\"Copy of\", \"(1)\", a machine name), these are the same filename."});
    else
        out.push_back({"Names differ", false,
                       "These are named differently, so they could be genuinely different files that happen to share "
                       "a size and timestamp — or the same file deliberately renamed."});
    if (parents.size() <= 1)
        out.push_back({"Same folder", true, "All copies sit in one folder — the usual shape of an accidental duplicate."});
    else
        out.push_back({"Different folders", false,
                       "Spread across " + std::to_string(parents.size()) +
                           " folders. That is often a deliberate second copy kept somewhere safe, so think before "
                           "removing one."});

    const auto here = std::count_if(files.begin(), files.end(), [](const CloudFile& f) { return f.onDisk; });
    if (here > 0)
        out.push_back({"Downloaded here", true,
                       std::to_string(here) + " of " + std::to_string(n) +
                           " also occupy space on this Mac, so removing them frees both the plan and this disk."});

    // A size that cannot be multiplied honestly is unknown, as a negative one is.
    std::int64_t download = -1;
    if (size < 0 || __builtin_mul_overflow(size, n, &download)) download = -1;
    out.push_back({"Contents not compared", false,
                   "Proving these identical means downloading " + sizeText(download) +
                       ". Velloran Orvane will not do that behind your back, so the last step of the judgement is "
                       "yours."});
    return out;
}

void CloudActionOutcome::creditDelete(const CloudFile& file, bool viaTrash) {
    cloudFreed = checkedAdd(cloudFreed, file.bytes);
    if (file.onDisk) {
        std::int64_t& bucket = viaTrash ? localTrashHeld : localFreed;
        bucket = checkedAdd(bucket, file.localBytes);
    }
    ++done;
}

void CloudActionOutcome::creditRelease(const CloudFile& file) {
    localFreed = checkedAdd(localFreed, file.localBytes);
    ++done;
}

std::string CloudInventory::normalisedStem(std::string_view path) {
    std::string stem = lowercased(deletingPathExtension(lastPathComponent(path)));
    for (std::string_view prefix : {"copy of ", "copy_of_", "duplicate of "})
        if (stem.starts_with(prefix)) stem.erase(0, prefix.size());
    std::string_view text = stem;
    text = withoutNumberInParentheses(text);
    text = withoutCopyMark(text);
    text = withoutSuffixWord(text);
    return trimWhitespace(text);
}

std::vector<CloudDupeGroup> CloudInventory::groupProbableDupes(const std::vector<CloudFile>& files,
                                                               const std::string& provider) {
    // Size and whole second together: two files a fraction of a second apart are one save.
    struct Key {
        std::int64_t bytes;
        std::int64_t second;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const {
            return std::hash<std::int64_t>{}(key.bytes) * 31 + std::hash<std::int64_t>{}(key.second);
        }
    };
    std::unordered_map<Key, std::vector<std::size_t>, KeyHash> buckets;
    std::vector<Key> order;  // first appearance, so that equal-sized groups keep a stable order
    for (std::size_t i = 0; i < files.size(); ++i) {
        const CloudFile& file = files[i];
        if (file.bytes < kSmallestGroupedFile) continue;
        const auto since1970 = std::chrono::duration_cast<std::chrono::microseconds>(file.modified.time_since_epoch());
        const Key key{file.bytes, since1970.count() / 1'000'000};  // toward zero, as a cast of the seconds
        auto [at, fresh] = buckets.try_emplace(key);
        if (fresh) order.push_back(key);
        at->second.push_back(i);
    }

    std::vector<CloudDupeGroup> groups;
    for (const Key& key : order) {
        const auto& members = buckets[key];
        if (members.size() < 2) continue;
        CloudDupeGroup group;
        group.provider = provider;
        std::set<std::string> stems;
        for (std::size_t i : members) {
            group.files.push_back(files[i]);
            stems.insert(normalisedStem(files[i].path));
        }
        group.confidence = stems.size() == 1 ? DupeConfidence::high : DupeConfidence::probable;
        groups.push_back(std::move(group));
    }
    std::stable_sort(groups.begin(), groups.end(), [](const CloudDupeGroup& a, const CloudDupeGroup& b) {
        return a.reclaimable() > b.reclaimable();
    });
    return groups;
}

TimePoint parseCloudDate(std::optional<std::string_view> text) {
    static const TimePoint distantPast = Clock::from_time_t(kEarliestDateUnixSeconds);
    if (!text || text->empty()) return distantPast;
    return parseISO8601(*text).value_or(distantPast);
}

}  // namespace orvane
