// How every command of orvane is declared and run. Registration adds --help and --json; a command
// builds one result that shows as text and as JSON; one place prints it and turns it into the
// exit status; one place turns an error escaping a command into a sentence and exit 2; and one
// place decides whether the world is this machine or a recorded Mac (--replay).
//
// A new command is a file of its own with one `addXCommand(Registry&)`, named in the list of
// commands.cpp. See docs/design.md, "One shape for every command".
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/output.hpp"
#include "core/common/facts.hpp"
#include "core/common/ov_error.hpp"
#include "core/safety/protection.hpp"

namespace orvane {
struct CleanupReport;
struct GenericScanDump;
}  // namespace orvane

namespace orvane::cli {

// This program's version, which updates are compared with.
inline constexpr std::string_view kProgramVersion = "0.1.0";

// Exit statuses of every command.
enum Exit : int {
    kDone = 0,      // done, or allowed
    kRefused = 1,   // refused, or a negative answer
    kBadInput = 2,  // bad usage or bad input
};

// What one run of a command gives back.
struct Result {
    int status = kDone;
    std::vector<std::string> lines;  // what a person reads; every line is escaped when printed
    nlohmann::ordered_json json;     // what --json prints instead: names exact
    std::vector<std::string> notes;  // sentences for standard error, shown with either form

    void line(std::string text = {}) { lines.push_back(std::move(text)); }
    void add(const Table& table);
};

// The answer of a command that would change the disk or reach the helper, on a recorded Mac:
// its plan, and "Nothing was changed: this is a recorded Mac.", exit 1.
inline constexpr std::string_view kNothingChangedOnARecording = "Nothing was changed: this is a recorded Mac.";
Result nothingChangedOnARecording(const std::vector<std::string>& plan);

// What a command is handed when it runs.
struct Invocation {
    const Facts& facts;  // this machine, or the recorded Mac of --replay
    bool json = false;
    Progress& progress;
};
using Run = std::function<Result(const Invocation&)>;

class Registry {
public:
    explicit Registry(CLI::App& app);

    // A command under `parent` (the program, or a group), with --json, run by `run`.
    CLI::App* add(CLI::App& parent, std::string name, std::string help, Run run);
    CLI::App* add(std::string name, std::string help, Run run) { return add(app_, std::move(name), std::move(help), std::move(run)); }
    // A group of commands ("protect add|remove|list") that does nothing by itself.
    CLI::App* group(std::string name, std::string help);

    // Parses the command line and runs the command: the exit status.
    int run(int argc, char** argv);

private:
    int execute(const Run& run, bool json);

    CLI::App& app_;
    std::string replayDir_;
    bool ledgerDirGiven_ = false;
    int exitCode_ = kDone;
};

// Whether `path` lies on the file system of the home folder, whose figures the disk's are.
bool onHomeFileSystem(const std::string& path, const Facts& facts);

// Every command, registered in the order --help lists them.
void registerCommands(Registry& registry);

// A path as typed, made absolute against the working folder when it is relative, lexically
// (no link is resolved, so that a path through a link stays one). An empty text stays empty.
std::string absolutePath(const std::string& path);

// A folder the command is to look into, as typed (absolute, lexically standardised), or the
// user's home when nothing is typed. Throws OVError with a sentence when it is not a folder this
// user can list.
std::string readableFolder(const std::string& typed, const Facts& facts);

// The contents of FILE, or of standard input for "-", within `limitBytes`. Throws OVError with a
// sentence when it cannot be read: never waits on a FIFO or a device.
std::string readInput(const std::string& fileOrDash, std::size_t limitBytes);

// The person's answer to a question just printed: a line of "y" or "yes" (either case of the
// first letter); anything else, or no line at all, is no.
bool answeredYes();

// One sentence on stderr, prefixed with the program's name and escaped.
void printError(std::string_view sentence);

// A file of the ledger's folder: this machine's, or the recorded Mac's under its home.
std::string ledgerFile(const Facts& facts, std::string_view name);
// The user's protection list: a missing file is an empty list; one that cannot be used is
// reported, protects everything, and is never overwritten.
StoredProtectList storedProtections(const Facts& facts);

// The commands, one file each.
void addScanCommand(Registry& registry);
void addDuCommand(Registry& registry);
void addVerdictCommand(Registry& registry);
void addArtifactsCommand(Registry& registry);
void addJanitorsCommand(Registry& registry);
void addPlanCommands(Registry& registry);
void addHelperCommands(Registry& registry);
void addLedgerCommands(Registry& registry);
void addProtectCommands(Registry& registry);
void addUnreadableCommand(Registry& registry);
void addStorageCommand(Registry& registry);
void addStartupCommand(Registry& registry);
void addLeftoversCommands(Registry& registry);
void addTrashAppsCommands(Registry& registry);
void addAppsCommands(Registry& registry);
void addGenuineCommand(Registry& registry);
void addDupesCommands(Registry& registry);
void addMoveCommands(Registry& registry);
void addAutoMoveCommands(Registry& registry);
void addMediaCommand(Registry& registry);
void addCloudCommands(Registry& registry);
void addModelsCommand(Registry& registry);
void addAIDataCommand(Registry& registry);
void addUpdateCommands(Registry& registry);
void addReportCommand(Registry& registry);

// The report of `root`, from a scan already made (`scanned`) or one it makes while it walks.
// Saves the folder's disk tree for the next report, unless the world is a recording.
CleanupReport buildCleanupReport(const std::string& root, const Facts& facts, Progress& progress,
                                 const GenericScanDump* scanned);
// Writes the page (`format` "html" or "md") to `typedOut`, or by its usual name in the working
// folder or the folder set as autoSummaryDir; the file's path.
std::string writeCleanupReport(const CleanupReport& report, const std::string& typedOut, const std::string& format);
void addWatchCommand(Registry& registry);
void addHealthCommand(Registry& registry);
void addCompressEstimateCommand(Registry& registry);
// `cloud fetch`, under the group `cloud`.
void addCloudFetchCommand(Registry& registry, CLI::App& cloud);

}  // namespace orvane::cli
