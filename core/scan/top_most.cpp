#include "core/scan/top_most.hpp"

#include <algorithm>
#include <numeric>

#include "core/common/byte_counts.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/scan/internal/hasher.hpp"

namespace orvane {
namespace {

bool isRealPath(std::string_view id) {
    return id.starts_with('/');
}

// For a text that begins with "/": whether it holds two user-perceived characters. Only a
// combining mark right after the "/" can join it, so the count is asked only then.
bool atLeastTwoCharacters(const std::string& text) {
    if (text.size() < 2) return false;
    if (static_cast<unsigned char>(text[1]) < 0x80) return true;
    return characterCount(text) >= 2;
}

// Whether `path` or a parent of it is in `paths`. Parents shorter than two characters are never
// asked, so "/" covers nothing; the walk stops if a parent fails to shrink.
bool coveredBy(const std::string& path, const std::unordered_set<std::string>& paths,
               bool includeSelf) {
    if (includeSelf && paths.contains(path)) return true;
    std::string current = path;
    for (;;) {
        std::string parent = deletingLastPathComponent(current);
        if (!atLeastTwoCharacters(parent) || parent.size() >= current.size()) return false;
        if (paths.contains(parent)) return true;
        current = std::move(parent);
    }
}

// The key covers exactly what decides the result: ids, sizes, and the members of pseudo-groups.
std::int64_t memoKey(const std::vector<SpaceItem>& items) {
    scan::internal::Hasher h;
    h.combine(static_cast<std::uint64_t>(items.size()));
    for (const auto& item : items) {
        h.combine(std::string_view(item.id));
        h.combine(item.sizeBytes);
        if (!isRealPath(item.id)) {
            h.combine(static_cast<std::uint64_t>(item.extra.size()));
            for (const auto& member : item.extra) h.combine(std::string_view(member));
        }
    }
    return static_cast<std::int64_t>(h.finalize());
}

}  // namespace

std::int64_t safeReclaimBytes(const std::vector<SpaceItem>& items) {
    std::int64_t total = 0;
    for (const auto& item : items)
        if (item.safety == Safety::safe && item.suggested == Suggested::delete_ &&
            item.sizeBytes > 0)
            total = addBytesOrUnknown(total, item.sizeBytes);
    return total;
}

bool pseudoGroupAlreadyCounted(const SpaceItem& item,
                               const std::unordered_set<std::string>& countedPaths) {
    for (const auto& member : item.extra)
        if (isRealPath(member) && coveredBy(member, countedPaths, true)) return true;
    return false;
}

std::vector<SpaceItem> topMostByPath(const std::vector<SpaceItem>& items) {
    const std::int64_t key = memoKey(items);
    if (auto hit = TopMostMemo::shared().value(key)) return std::move(*hit);

    // By length in characters, so every ancestor is met before its descendants.
    std::vector<std::size_t> lengths;
    lengths.reserve(items.size());
    for (const auto& item : items) lengths.push_back(characterCount(item.id));
    std::vector<std::size_t> sorted(items.size());
    std::iota(sorted.begin(), sorted.end(), std::size_t{0});
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](std::size_t a, std::size_t b) { return lengths[a] < lengths[b]; });

    std::unordered_set<std::string> kept;
    std::vector<bool> keep(items.size(), false);
    for (std::size_t i : sorted) {
        const std::string& id = items[i].id;
        if (!isRealPath(id) || coveredBy(id, kept, true)) continue;
        kept.insert(id);
        keep[i] = true;
    }

    std::vector<SpaceItem> result;
    for (std::size_t i : sorted) {
        const SpaceItem& item = items[i];
        bool in = isRealPath(item.id) ? keep[i] : !pseudoGroupAlreadyCounted(item, kept);
        if (in) result.push_back(item);
    }

    TopMostMemo::shared().store(key, result);
    return result;
}

std::int64_t topMostBytes(const std::vector<SpaceItem>& items) {
    std::int64_t total = 0;
    for (const auto& item : topMostByPath(items))
        total = addBytesOrUnknown(total, std::max<std::int64_t>(item.sizeBytes, 0));
    return total;
}

TopMostMemo& TopMostMemo::shared() {
    // Never destroyed, so a thread still summing while the process exits finds it intact.
    static TopMostMemo* memo = new TopMostMemo;
    return *memo;
}

std::optional<std::vector<SpaceItem>> TopMostMemo::value(std::int64_t key) const {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = store_.find(key);
    if (it == store_.end()) return std::nullopt;
    return it->second;
}

void TopMostMemo::store(std::int64_t key, std::vector<SpaceItem> items) {
    std::lock_guard<std::mutex> guard(lock_);
    if (store_.size() >= capacity) store_.clear();
    store_[key] = std::move(items);
}

}  // namespace orvane
