// orvane storage: the home's volume reconciled with what a scan itemised, System Data line by line,
// the disk's container, and what could not be read. Every figure says how far it can be trusted.
#include <algorithm>
#include <map>
#include <mutex>

#include "cli/refusals.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/scan/generic_scan.hpp"
#include "core/scan/top_most.hpp"
#include "core/storage/container_report.hpp"
#include "core/storage/storage_truth.hpp"
#include "core/storage/system_data.hpp"

namespace orvane::cli {
namespace {

struct StorageOptions {
    std::string path;
    std::string scanned;  // as typed; empty when not given
};

// The figures and the System Data report ask the same tools (snapshots, the container, open
// files); one answer serves both, and both then describe the same moment.
Facts askingEachToolOnce(const Facts& facts) {
    struct Memo {
        std::mutex lock;
        std::map<std::vector<std::string>, ToolResult> answers;
    };
    auto memo = std::make_shared<Memo>();
    Facts once = facts;
    once.run = [memo, run = facts.run](const std::string& tool, const std::vector<std::string>& args, double timeout,
                                       bool nul, ToolErrors errors) {
        std::vector<std::string> key = {tool, nul ? "nul" : "lines", std::to_string(static_cast<int>(errors))};
        key.insert(key.end(), args.begin(), args.end());
        {
            std::lock_guard guard(memo->lock);
            if (auto known = memo->answers.find(key); known != memo->answers.end()) return known->second;
        }
        ToolResult result = run(tool, args, timeout, nul, errors);
        std::lock_guard guard(memo->lock);
        return memo->answers.emplace(std::move(key), std::move(result)).first->second;
    };
    return once;
}

std::int64_t typedBytes(const std::string& typed) {
    std::int64_t bytes = -1;
    const bool whole = !typed.empty() && typed.find_first_not_of("0123456789") == std::string::npos &&
                       typed.size() <= 18;
    if (whole) bytes = std::stoll(typed);
    if (bytes < 0) throw OVError("--scanned takes a whole number of bytes, such as 120000000000, not \"" + typed + "\".");
    return bytes;
}

std::string sizeOrDash(const std::optional<std::int64_t>& bytes) { return bytes ? fmtBytes(*bytes) : "—"; }

void describe(Result& result, const StorageTruth::Reconciliation& r, const SystemDataReport& systemData,
              const std::optional<ContainerReport>& container, int pinning, const RefusalSurvey& survey) {
    result.line(fmtBytes(r.capacity) + " disk: " + fmtBytes(r.used) + " used, " + fmtBytes(r.freeNow) +
                " free now, " + fmtBytes(r.freeIfPurged) + " once macOS hands back what it holds.");
    result.line("The scan itemised " + fmtBytes(r.attributed) + ". What the rest is, and how sure each figure is:");
    result.line();
    for (const auto& fact : r.facts) {
        result.line(fact.label + ": " + sizeOrDash(fact.bytes) + " (" + std::string(rawValue(fact.confidence)) + ")");
        result.line("  " + fact.what);
        result.line("  " + fact.why);
    }
    result.line();
    result.line("System Data, line by line:");
    for (const auto& line : systemData.lines) {
        std::string how(rawValue(line.confidence));
        if (line.inScan) how += ", counted by the scan";
        else if (line.overlaps) how += ", overlaps other lines";
        result.line("  " + line.label + ": " + sizeOrDash(line.bytes) + " (" + how + ")");
        result.line("    " + line.detail);
    }
    result.line(systemData.unexplained ? "  Unexplained: " + fmtBytes(*systemData.unexplained) + "."
                                       : "  Unexplained: unknown, since the parts add up to more than the disk uses.");
    if (container) {
        result.line();
        result.line("Volumes of the container " + container->reference + " (" + fmtBytes(container->capacity) + ", " +
                    fmtBytes(container->free) + " free):");
        Table volumes({Table::Align::left, Table::Align::left, Table::Align::left, Table::Align::right});
        for (const auto& volume : container->volumes)
            volumes.row({"  " + volume.device, volume.name, volume.role.empty() ? "—" : volume.role,
                         fmtBytes(volume.bytesInUse)});
        result.add(volumes);
        if (pinning > 0)
            result.line(counted(pinning, "snapshot") + " of the data volume " + (pinning == 1 ? "limits" : "limit") +
                        " how far the container can shrink.");
    }
    result.line();
    addRefusalLines(result, survey);
}

Result runStorage(const StorageOptions& options, const Invocation& in) {
    const Facts facts = askingEachToolOnce(in.facts);
    const std::string home = facts.home("");
    const std::string root = readableFolder(options.path, facts);
    if (!onHomeFileSystem(root, facts))
        throw OVError(root + " is not on the disk of the home folder " + home + ", whose figures these are.");

    std::int64_t scanned = 0;
    std::vector<std::string> itemPaths;
    if (!options.scanned.empty()) {
        scanned = typedBytes(options.scanned);
    } else if (!facts.recorded) {
        in.progress.show("Scanning " + root + "…");
        const GenericScanDump dump =
            buildGenericScanDump(ScanScope(scope::Folder{root}), true, ScanPrivilege::standard, facts.uid, facts);
        scanned = topMostBytes(dump.items);
        for (const auto& item : dump.items) itemPaths.push_back(item.id);
    }
    auto covered = [&itemPaths](const std::string& path) {
        return std::any_of(itemPaths.begin(), itemPaths.end(),
                           [&path](const std::string& item) { return isAtOrBelow(path, item); });
    };

    in.progress.show("Looking for what could not be read…");
    const RefusalSurvey survey = surveyRefusals(root, facts);
    std::optional<std::int64_t> simulatorBytes;
    if (const std::string simulators = facts.home("Library/Developer/CoreSimulator/Devices"); facts.exists(simulators))
        simulatorBytes = duSize(simulators, facts);

    in.progress.show("Asking the disk for its figures…");
    const auto reconciliation = StorageTruth::reconcile(scanned, 0, facts);
    in.progress.show("Itemising System Data…");
    const auto systemData = SystemDataReport::measure(scanned, covered, static_cast<int>(survey.unreadable.size()),
                                                      !survey.fdaGranted, simulatorBytes, home, facts);
    const auto container = bootContainerReport(facts);
    const int pinning = snapshotsPinningContainer(facts);

    Result result;
    describe(result, reconciliation, systemData, container, pinning, survey);
    result.json = {{"path", root},
                   {"scanned", scanned},
                   {"reconciliation", toJSON(reconciliation)},
                   {"systemData", toJSON(systemData)},
                   {"container", container ? toJSON(*container) : nlohmann::ordered_json()},
                   {"pinningSnapshots", pinning},
                   {"unreadable", unreadableJSON(survey)},
                   {"skipped", skippedJSON(survey)},
                   {"fullDiskAccess", survey.fdaGranted}};
    return result;
}

}  // namespace

void addStorageCommand(Registry& registry) {
    auto options = std::make_shared<StorageOptions>();
    auto* command = registry.add(
        "storage",
        "Reconcile the home's disk: its capacity, used and free space, what a scan of PATH (the home when none "
        "is given) itemised, and every gap named with how far its figure can be trusted; System Data line by "
        "line; the disk's other volumes; and the folders that could not be read. A figure nobody can know is "
        "shown as \"—\", never as zero.",
        [options](const Invocation& in) { return runStorage(*options, in); });
    command->add_option("PATH", options->path, "A folder on the home's disk to scan (default: the home)")
        ->type_name("FOLDER");
    command->add_option("--scanned", options->scanned,
                        "Bytes a scan already itemised: no scan is made (under --replay nothing is scanned, and "
                        "this is 0 when not given)")
        ->type_name("BYTES");
}

}  // namespace orvane::cli
