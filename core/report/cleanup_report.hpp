// The clean-up report: one page a person can look at, with where the space went, what the scan
// found and how sure each figure is, and in plain sentences what it could not include.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"
#include "core/report/disk_walk.hpp"
#include "core/report/report_treemap.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

struct ReportRow {
    SpaceItem item;
    std::optional<std::string> protectionLine;  // what keeps it, when something does
    bool operator==(const ReportRow&) const = default;
};

struct ReportCategory {
    std::string name;
    std::int64_t bytes = 0;  // the top-most sum of its rows
    std::vector<ReportRow> rows;  // largest first
    bool operator==(const ReportCategory&) const = default;
};

// What may be freed safely, moved, or only reviewed, each by its top-most sum.
struct ReportTotals {
    std::int64_t safe = 0;
    std::int64_t move = 0;
    std::int64_t review = 0;
    bool operator==(const ReportTotals&) const = default;
};

struct StorageLine {
    std::string label;
    std::optional<std::int64_t> bytes;
    std::string confidence;
    std::string what;
    bool operator==(const StorageLine&) const = default;
};

struct FreeSpacePoint {
    TimePoint date;
    std::int64_t free = 0;
    bool operator==(const FreeSpacePoint&) const = default;
};

struct ReportDuplicates {
    std::string keeper;
    std::string reason;
    std::vector<std::string> copies;
    std::int64_t size = 0;   // of one copy
    std::int64_t claim = 0;  // what merging gives back
    bool operator==(const ReportDuplicates&) const = default;
};

struct CleanupReport {
    std::string root;
    std::string scopeKey;
    TimePoint generated;
    std::int64_t totalBytes = -1;  // as du measures the root; -1 unknown
    std::int64_t files = 0;
    std::int64_t free = -1;
    std::int64_t capacity = -1;

    TreemapRect canvas;
    std::vector<TreemapTile> tiles;
    std::vector<ReportCategory> categories;  // largest first
    ReportTotals totals;
    std::optional<std::vector<FolderGrowth>> growth;  // none: no earlier report of this place

    std::optional<std::vector<StorageLine>> storage;
    std::optional<std::string> forecastSentence;
    std::vector<FreeSpacePoint> trend;
    std::optional<std::vector<ReportDuplicates>> duplicates;
    std::vector<WalkedArtifact> artifacts;

    std::vector<std::string> unreadable;
    std::vector<std::string> otherFileSystems;
    std::size_t skippedNames = 0;
    std::vector<std::string> leftOut;  // sentences: what the page does not include, and why
};

// The findings grouped by category and their totals, top-most sums throughout so that a folder and
// a file inside it count once.
std::vector<ReportCategory> reportCategories(const std::vector<ReportRow>& rows);
ReportTotals reportTotals(const std::vector<SpaceItem>& items);

// The page: one self-contained HTML file, nothing fetched, every text escaped in one place.
std::string reportHTML(const CleanupReport& report);
// The same content as plain Markdown tables.
std::string reportMarkdown(const CleanupReport& report);
// The report's data, dates in ISO 8601, absent values null.
nlohmann::ordered_json toJSON(const CleanupReport& report);

// A name or any other text as it is safe to show on the page: bytes that are not UTF-8, control
// characters and the marks that reverse the direction of text shown as escapes, then HTML's five
// characters as entities.
std::string pageText(std::string_view text);

}  // namespace orvane
