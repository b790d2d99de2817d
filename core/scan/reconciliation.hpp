// Findings checked against the disk as it is now: what is gone, what is left of a group, whether
// a selection still means what was approved, the words for an action on a group, and the short
// list of evicted paths already credited.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

// Nothing here throws and nothing keeps state; what touches the disk runs `du` or `lstat` on the
// caller's thread.
struct Reconciliation {
    std::vector<SpaceItem> present;   // in the input's order; a rollup that lost members is pruned
    std::vector<SpaceItem> vanished;  // unchanged, in the input's order

    // What the vanished items held, negative sizes counted as 0; -1 (unknown) when the sizes,
    // which may come from a damaged cache, add up past kMaxByteCount.
    std::int64_t lostBytes() const;

    bool operator==(const Reconciliation&) const = default;
};

// A path is there when it exists or is a link, dangling or not. An item whose `extra` holds a
// path is judged by its members alone (its id is never looked up); one without path members, and
// a pseudo-group without members, is present unchecked. A path that cannot be examined is gone.
Reconciliation reconcileWithDisk(const std::vector<SpaceItem>& items, const Facts& facts = Facts::real());

// The group reduced to the members `left`: a fresh count in its title, no `lastUsed`, and a size
// measured by `du` over `left`, or, when no member can be measured, the old size in proportion.
SpaceItem prunedRollup(const SpaceItem& item, const std::vector<std::string>& left,
                       const Facts& facts = Facts::real());

// The ids of `selected` whose item stands in both lists (the first of an id counting) with the same
// size and the same members in the same order: an approval never outlives what it approved.
std::set<std::string> prunedSelection(const std::set<std::string>& selected, const std::vector<SpaceItem>& before,
                                      const std::vector<SpaceItem>& after);

// "Downloads (3 items)" with 1 gives "Downloads (1 item)"; a title that does not end in such a
// count ("Report (final)", "Foo (3 files)") comes back unchanged.
std::string rollupTitle(std::string_view title, std::int64_t count);

// "2 items — press ⓘ to see them".
std::string rollupMembersLine(std::int64_t count);

// A member of a group that an action left where it was, and why.
struct KeptMember {
    std::string path;
    std::string reason;
    bool operator==(const KeptMember&) const = default;
};

struct RollupOutcome {
    std::vector<std::string> ledger;  // lines for the action log
    std::vector<std::string> report;  // lines for the user's report
    std::optional<std::string> keptSummary;  // none when nothing stayed
    bool operator==(const RollupOutcome&) const = default;
};

// The words for removing (`permanently`) or trashing `moved` of the `total` members of a group.
RollupOutcome rollupOutcome(std::string_view id, std::string_view title, std::int64_t total, std::int64_t moved,
                            const std::vector<KeptMember>& kept, bool permanently, std::string_view home);

// Under the home's "Library/Mobile Documents/" or "Library/CloudStorage/".
bool isCloudProviderPath(std::string_view path, std::string_view home);

// A file whose content lives in the cloud, not here: less than a tenth of its length on disk, not
// for compression's sake, and in a provider's folder or, asked last because it is slow,
// `isUbiquitous`.
bool isCloudOnlyFile(const platform::FileFacts& st, std::string_view path, const std::function<bool()>& isUbiquitous,
                     std::string_view home);

// `credited` with `path` appended and only the newest `cap` kept; none when `path` was already
// credited, so that an eviction's bytes count once.
std::optional<std::vector<std::string>> claimEvictionCredit(const std::string& path,
                                                            const std::vector<std::string>& credited, std::int64_t cap);
// `credited` without `path`, so that a file that came back can be credited again.
std::vector<std::string> releaseEvictionCredit(const std::string& path, const std::vector<std::string>& credited);

}  // namespace orvane
