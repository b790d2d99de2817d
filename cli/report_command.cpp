// orvane report: one page a person can look at, written as a self-contained HTML file.
#include <future>
#include <memory>

#include "cli/command.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/duplicates/duplicate_scan.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/monitoring/fill_forecast.hpp"
#include "core/monitoring/space_watch.hpp"
#include "core/platform/platform.hpp"
#include "core/report/cleanup_report.hpp"
#include "core/safety/protection.hpp"
#include "core/scan/generic_scan.hpp"
#include "core/scan/top_most.hpp"
#include "core/storage/storage_truth.hpp"

namespace orvane::cli {

namespace {

constexpr TreemapRect kCanvas{0, 0, 1200, 720};
// The folders kept for the next report's comparison: deep enough to say which folder grew.
constexpr int kDiskTreeDepth = 3;
constexpr std::size_t kGrowthShown = 5;

struct ReportOptions {
    std::string path;
    std::string out;
    std::string format = "html";
};

std::string dayOf(TimePoint date) { return iso8601(date).substr(0, 10); }

std::vector<ReportRow> protectedRows(std::vector<SpaceItem> items, const Facts& facts, std::vector<std::string>& leftOut) {
    const StoredProtectList stored = storedProtections(facts);
    if (!stored.list) leftOut.push_back(stored.problem + " The findings do not show your protections.");
    const ProtectList list = stored.list.value_or(ProtectList{});
    const std::string home = facts.home("");
    std::vector<ReportRow> rows;
    for (auto& item : items) {
        const auto kept = protection(item.id, list, {}, {}, home);
        ReportRow row{applyingProtection(std::move(item), kept), std::nullopt};
        if (kept) row.protectionLine = kept->line();
        rows.push_back(std::move(row));
    }
    return rows;
}

void addStorage(CleanupReport& report, std::int64_t scanned, const Facts& facts) {
    const auto reconciliation = StorageTruth::reconcile(scanned, 0, facts);
    std::vector<StorageLine> lines = {
        {"Capacity", reconciliation.capacity, std::string(rawValue(StorageConfidence::measured)), "The size of the disk."},
        {"Used", reconciliation.used, std::string(rawValue(StorageConfidence::measured)), "What the disk counts as taken."},
        {"Free", reconciliation.freeNow, std::string(rawValue(StorageConfidence::measured)), "What is free right now."},
    };
    for (const auto& fact : reconciliation.facts)
        lines.push_back({fact.label, fact.bytes, std::string(rawValue(fact.confidence)), fact.what});
    report.storage = std::move(lines);
}

void addTrends(CleanupReport& report, TimePoint now) {
    std::vector<FreePoint> points;
    for (const auto& snapshot : Ledger::loadTrends()) {
        if (snapshot.free < 0) continue;
        points.push_back({snapshot.date, snapshot.free});
        report.trend.push_back({snapshot.date, snapshot.free});
    }
    report.forecastSentence = forecastSentence(fillForecast(points, now));
    if (report.trend.size() < 2)
        report.leftOut.push_back("There is no chart of free space: it needs scans of your home folder on two days or "
                                 "more (orvane scan ~).");
}

void addDuplicates(CleanupReport& report, const std::vector<SpaceItem>& items, const Facts& facts) {
    std::vector<std::string> files;
    for (const auto& item : items)
        if (!item.isDir && item.sizeBytes > 0) files.push_back(item.id);
    if (files.size() < 2) {
        report.duplicates = std::vector<ReportDuplicates>{};
        return;
    }
    DuplicateScanOptions options;
    if (!facts.recorded) options.physicalStart = platform::physicalStart;
    const auto finding = findDuplicates(files, facts, options);
    std::vector<ReportDuplicates> groups;
    for (const auto& group : finding.groups)
        groups.push_back({group.keeper, group.reason, group.copies, group.size, group.claim.bytes});
    report.duplicates = std::move(groups);
}

struct Written {
    CleanupReport report;
    std::string file;
};

std::string defaultFolder(const std::string& typedOut) {
    if (!typedOut.empty()) return {};
    const auto configured = SpaceWatchConfig::from([](std::string_view key) { return userDefault(key); }).autoSummaryDir;
    return configured.empty() ? absolutePath(".") : absolutePath(configured);
}

}  // namespace

CleanupReport buildCleanupReport(const std::string& root, const Facts& facts, Progress& progress,
                                 const GenericScanDump* scanned) {
    CleanupReport report;
    report.root = root;
    const ScanScope scope(scope::Folder{root});
    report.scopeKey = scope.key();
    report.generated = facts.now();
    report.canvas = kCanvas;

    // The scan waits on find in another process while this thread walks: the page costs about as
    // long as the longer of the two, not their sum.
    std::future<GenericScanDump> scanning;
    if (!scanned)
        scanning = std::async(std::launch::async, [&] {
            return buildGenericScanDump(scope, true, ScanPrivilege::standard, facts.uid, facts);
        });
    progress.show("Measuring the folders under " + root + "…");
    const DiskWalk walk = walkAsDuMeasures(root, facts, [&](std::int64_t files) {
        progress.show("Measuring the folders under " + root + "… " + std::to_string(files) + " files");
    });
    progress.show("Waiting for the scan…");
    const GenericScanDump dump = scanned ? *scanned : scanning.get();

    report.totalBytes = walk.totalBytes();
    report.files = walk.files;
    report.free = dump.free;
    report.capacity = dump.total;
    report.unreadable = walk.unreadable;
    report.otherFileSystems = walk.otherFileSystems;
    report.skippedNames = dump.skippedNames;
    if (dump.skippedNames > 0)
        report.leftOut.push_back(counted(static_cast<std::int64_t>(dump.skippedNames), "file") +
                                 " left out of the findings: " + (dump.skippedNames == 1 ? "its name is" : "their names are") +
                                 " not valid UTF-8.");

    const std::vector<SpaceItem> items = dump.items;
    const auto rows = protectedRows(dump.items, facts, report.leftOut);
    std::vector<SpaceItem> protectedItems;
    for (const auto& row : rows) protectedItems.push_back(row.item);
    report.categories = reportCategories(rows);
    report.totals = reportTotals(protectedItems);
    report.tiles = reportTreemap(walk, protectedItems, kCanvas);
    report.artifacts = projectArtifactsOf(walk);
    report.leftOut.push_back("The findings are files over 10 MB and the folders the scan knows; smaller files count "
                             "in their folders' sizes only.");

    progress.show("Comparing the largest findings…");
    addDuplicates(report, items, facts);
    report.leftOut.push_back("Identical copies are looked for among the findings only; orvane dupes " + root +
                             " compares every file.");
    if (!report.artifacts.empty())
        report.leftOut.push_back("Whether git keeps files inside the project folders was not asked; orvane artifacts " +
                                 root + " does before it offers any.");

    if (onHomeFileSystem(root, facts)) {
        progress.show("Asking the disk for its figures…");
        addStorage(report, topMostBytes(items), facts);
    } else {
        report.leftOut.push_back("The disk's figures are left out: " + root + " is not on the disk of your home folder.");
    }

    if (facts.recorded) {
        report.leftOut.push_back("A recorded Mac's history is not read: there is no chart of free space and no "
                                 "comparison with an earlier report.");
    } else {
        addTrends(report, report.generated);
        const auto before = Ledger::loadDiskTree(scope);
        const auto now = diskTreeOf(walk, kDiskTreeDepth);
        if (before.empty()) report.leftOut.push_back("This is the first report of this folder: the next one will say which folders grew.");
        else report.growth = folderGrowth(before, now, kGrowthShown);
        Ledger::saveDiskTree(scope, now);
    }
    progress.clear();
    return report;
}

std::string writeCleanupReport(const CleanupReport& report, const std::string& typedOut, const std::string& format) {
    const std::string extension = format == "md" ? ".md" : ".html";
    const std::string file = typedOut.empty()
                                 ? appendingPathComponent(defaultFolder(typedOut),
                                                          "orvane-report-" + report.scopeKey + "-" + dayOf(report.generated) + extension)
                                 : absolutePath(typedOut);
    const std::string text = format == "md" ? reportMarkdown(report) : reportHTML(report);
    if (!writeFileAtomically(file, text)) throw OVError("Cannot write the report to " + file + ".");
    return file;
}

namespace {

Result runReport(const ReportOptions& options, const Invocation& in) {
    if (options.format != "html" && options.format != "md")
        throw OVError("--format is html or md, not \"" + options.format + "\".");
    std::string root = readableFolder(options.path, in.facts);
    // A link to a folder is reported as the folder it leads to: the walk follows no link.
    if (const auto seen = in.facts.lstat(root); seen && seen->isSymlink()) root = in.facts.resolve(root).value_or(root);
    const CleanupReport report = buildCleanupReport(root, in.facts, in.progress, nullptr);
    const std::string file = writeCleanupReport(report, options.out, options.format);
    Result result;
    result.line(file);
    result.json = toJSON(report);
    result.json["file"] = file;
    return result;
}

}  // namespace

void addReportCommand(Registry& registry) {
    auto options = std::make_shared<ReportOptions>();
    auto* report = registry.add(
        "report",
        "Write one page about where the space under PATH went: a treemap of its folders (sizes as du measures them) "
        "with what the scan found coloured by kind and safety, the findings by category with what may be freed "
        "safely, moved or only reviewed, the disk's figures with how sure each is, free space over time, identical "
        "copies among the findings, project folders that rebuild themselves, and what could not be read or is "
        "left out. The page is one HTML file that needs no network. Prints its path; --json prints the report's "
        "data instead. Besides the page and the folder sizes kept for the next report, nothing is written.",
        [options](const Invocation& in) { return runReport(*options, in); });
    report->add_option("PATH", options->path, "The folder to report on")->required();
    report->add_option("--out", options->out,
                       "Write the page here (default: orvane-report-<scope>-<date>.html in the working folder, or in the "
                       "folder set as autoSummaryDir)")
        ->type_name("FILE");
    report->add_option("--format", options->format, "html (default) or md, plain Markdown tables");
}

}  // namespace orvane::cli
