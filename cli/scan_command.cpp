// orvane scan: where a folder's space went.
#include <fmt/format.h>

#include "cli/command.hpp"
#include "core/common/path.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/monitoring/os_version.hpp"
#include "core/monitoring/space_watch.hpp"
#include "core/monitoring/watch_inputs.hpp"
#include "core/privileged/client.hpp"
#include "core/report/cleanup_report.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/scan/generic_scan.hpp"

namespace orvane::cli {
namespace {

constexpr std::string_view kLastSummaryKey = "ov.watch.lastSummary";

struct ScanOptions {
    std::string path;
    std::string volume;
    bool admin = false;
    std::string socket = kDefaultHelperSocket;
};

// Where an item lies, as the person who named the scanned folder would say it.
std::string relativeTo(const std::string& root, const std::string& path) {
    if (path.size() > root.size() && path.starts_with(root) && (root == "/" || path[root.size()] == '/'))
        return path.substr(root == "/" ? 1 : root.size() + 1);
    return path;
}

void describe(Result& result, const GenericScanDump& dump, const ScanScope& scope, const std::string& root) {
    result.line(scope.label() + " — " + scope.subtitle());
    result.line();
    if (dump.items.empty()) {
        result.line("No file over the size threshold under " + root + ".");
    } else {
        Table table({Table::Align::right, Table::Align::left, Table::Align::left});
        for (const auto& item : dump.items) {
            table.row({sizeText(item.sizeBytes), std::string(shortCategoryName(item.category)), item.title});
            table.note(relativeTo(root, item.id) + " — " + item.note);
        }
        result.add(table);
    }
    result.line();
    if (dump.free >= 0 && dump.total >= 0)
        result.line(fmtBytes(dump.free) + " free of " + fmtBytes(dump.total) + " on this file system.");
    else
        result.line("The free space of this file system is unknown.");
    result.line(fmt::format("{} in {:.1f} s. {}", counted(static_cast<std::int64_t>(dump.items.size()), "finding"),
                            dump.elapsed, note(dump.privilege)));
    if (dump.skippedNames > 0)
        result.line(counted(static_cast<std::int64_t>(dump.skippedNames), "name") + " skipped: not valid UTF-8.");
}

// The weekly scan is the first scan of the home folder a week or more after the last summary:
// nothing here runs on a schedule of its own.
constexpr auto kSummaryInterval = std::chrono::hours(24 * 7);

void writeWeeklySummaryIfDue(const std::string& root, const GenericScanDump& dump, const Facts& facts, Progress& progress,
                             Result& result) {
    const auto config = SpaceWatchConfig::from([](std::string_view key) { return userDefault(key); });
    if (!config.autoSummaryAfterWeeklyScan) return;
    const auto stored = userDefault(kLastSummaryKey);
    const auto last = stored && stored->is_string() ? parseISO8601(stored->get<std::string>()) : std::nullopt;
    const TimePoint now = facts.now();
    if (last && now - *last < kSummaryInterval) return;
    try {
        const auto report = buildCleanupReport(root, facts, progress, &dump);
        const std::string file = writeCleanupReport(report, "", config.autoSummaryFormat == "md" ? "md" : "html");
        setUserDefault(kLastSummaryKey, iso8601(now));
        result.line("The weekly summary is at " + file + ".");
    } catch (const OVError& error) {
        result.notes.push_back("The weekly summary was not written: " + error.msg);
    }
}

Result runScan(const ScanOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string root = readableFolder(options.path, facts);
    const ScanScope scope =
        options.volume.empty() ? ScanScope(scope::Folder{root}) : ScanScope(scope::Volume{root, options.volume});

    GenericScanDump dump;
    if (options.admin) {
        if (facts.recorded)
            return nothingChangedOnARecording({"Would ask the privileged helper to scan " + root + " as administrator."});
        auto scan = scanAsAdministrator(scope, facts.home(""), options.socket);
        if (!scan.dump) {
            Result refused;
            refused.status = scan.answer.kind == HelperAnswer::Kind::refused ? kRefused : kBadInput;
            refused.notes.push_back(scan.answer.kind == HelperAnswer::Kind::refused
                                        ? "The helper did not scan: " + scan.answer.reply + ". " + scan.answer.sentence
                                        : scan.answer.sentence);
            refused.json = {{"scanned", false}, {"reason", scan.answer.sentence}};
            return refused;
        }
        dump = std::move(*scan.dump);
    } else {
        Facts watched = facts;
        watched.run = [&](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                          ToolErrors errors) {
            in.progress.show(std::string(label(tool == "/usr/bin/find" ? ScanPhase::cataloguing : ScanPhase::dating)));
            return facts.run(tool, args, timeout, nul, errors);
        };
        dump = buildGenericScanDump(scope, true, ScanPrivilege::standard, facts.uid, watched);
    }

    // What the user protected, or what is painful to lose, says so on its row, in both forms.
    Result result;
    const StoredProtectList stored = storedProtections(facts);
    if (!stored.list) result.notes.push_back(stored.problem + " The rows do not show your protections.");
    const ProtectList list = stored.list.value_or(ProtectList{});
    const std::string userHome = facts.home("");
    for (auto& item : dump.items) item = applyingProtection(std::move(item), protection(item.id, list, {}, {}, userHome));
    result.json = toJSON(dump, JSONDateEncoding::iso8601);
    describe(result, dump, scope, root);
    // The watch's history is this machine's: a recorded Mac's scan leaves nothing behind.
    if (!facts.recorded) {
        rememberScanForWatch(scope, dump.items, dump.free, dump.total, onHomeFileSystem(root, facts), currentOSVersion(facts),
                             facts.now());
        if (root == userHome) writeWeeklySummaryIfDue(root, dump, facts, in.progress, result);
    }
    return result;
}

}  // namespace

void addScanCommand(Registry& registry) {
    auto options = std::make_shared<ScanOptions>();
    auto* scan = registry.add(
        "scan",
        "Find where the space under PATH went: every file over 10 MB (100 MB with --volume), largest first, with "
        "what kind of finding it is, where it lies under PATH, and a note on when it was last changed or opened. "
        "Nothing is changed. --json prints the scan as the helper writes it (dates as ISO 8601).",
        [options](const Invocation& in) { return runScan(*options, in); });
    scan->add_option("PATH", options->path, "The folder to scan")->required();
    scan->add_option("--volume", options->volume, "Scan PATH as a whole drive with this name (files over 100 MB, and its Trash)");
    scan->add_flag("--admin", options->admin, "Ask the privileged helper to scan as administrator");
    scan->add_option("--socket", options->socket, "The helper's socket, with --admin")->capture_default_str();
}

}  // namespace orvane::cli
