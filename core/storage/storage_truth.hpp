// Why tools disagree about one disk: the disk's own figures, and every gap between them and what a
// scan itemised turned into a named fact that says how much, what it is, why it matters and how
// far the figure may be trusted. A figure nobody can know is shown as unknown, never as zero.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/storage/storage_confidence.hpp"

namespace orvane {

struct StorageFact {
    std::string label;
    std::optional<std::int64_t> bytes;
    StorageConfidence confidence = StorageConfidence::measured;
    std::string what;
    std::string why;
    std::optional<std::string> pageID;  // the page of the front end this fact leads to
    bool operator==(const StorageFact&) const = default;
};

namespace StorageTruth {

struct Reconciliation {
    std::int64_t capacity = 0;
    std::int64_t freeNow = 0;
    std::int64_t freeIfPurged = 0;
    std::int64_t purgeable = 0;
    std::int64_t used = 0;
    std::int64_t attributed = 0;
    std::vector<StorageFact> facts;
    bool operator==(const Reconciliation&) const = default;
};

// `scanned` is what a scan itemised, `cloudPlaceholders` what cloud drives list without storing
// (0: nobody measured it yet). Blocks for as long as its tools run (up to 15 s for snapshots,
// 12 s for open files, 20 s for each container question): keep it off a responsive thread.
Reconciliation reconcile(std::int64_t scanned, std::int64_t cloudPlaceholders, const Facts& facts = Facts::real());

}  // namespace StorageTruth

// Used minus attributed; none when either figure makes the difference meaningless.
std::optional<std::int64_t> storageResidual(std::int64_t used, std::int64_t attributed);

// {"label","bytes","confidence","what","why","pageID"}, absent values null.
nlohmann::ordered_json toJSON(const StorageFact& fact);
// {"capacity","freeNow","freeIfPurged","purgeable","used","attributed","facts"}.
nlohmann::ordered_json toJSON(const StorageTruth::Reconciliation& reconciliation);

}  // namespace orvane
