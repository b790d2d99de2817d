// What every command shares: the global options, and how results and errors are printed.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "core/safety/protection.hpp"

namespace orvane::cli {

// Exit statuses of every command.
enum Exit : int {
    kDone = 0,      // done, or allowed
    kRefused = 1,   // refused, or a negative answer
    kBadInput = 2,  // bad usage or bad input
};

struct Context {
    std::string ledgerDir;  // --ledger-dir: where the ledger lives instead of its usual folder
    int exitCode = kDone;   // set by the command that ran
};

// Prints `document` on stdout as indented JSON, one document per run. Names stay exact: JSON's
// own escaping is all they need.
void printJSON(const nlohmann::ordered_json& document);

// One line of readable output on stdout. Control characters are escaped here, the one place, so
// that no name can move the cursor or forge a line of its own.
void printLine(std::string_view line);

// One sentence on stderr, prefixed with the program's name, escaped as printLine escapes.
void printError(const std::string& sentence);

// The contents of FILE, or of standard input for "-"; an error sentence when it cannot be read.
struct Input {
    std::optional<std::string> text;
    std::string error;
};
Input readInput(const std::string& fileOrDash, std::size_t limitBytes);

// The user's protection list, from the ledger folder. A missing file is an empty list; a list that
// cannot be used is reported, protects everything, and is never overwritten.
std::string protectListPath();
StoredProtectList loadProtectList();

void addPlanCommands(CLI::App& app, Context& context);
void addScanCommand(CLI::App& app, Context& context);
void addDuCommand(CLI::App& app, Context& context);
void addRepairCommand(CLI::App& app, Context& context);
void addHistoryCommand(CLI::App& app, Context& context);
void addMovesCommand(CLI::App& app, Context& context);
void addVerdictCommand(CLI::App& app, Context& context);
void addArtifactsCommand(CLI::App& app, Context& context);
void addJanitorsCommand(CLI::App& app, Context& context);

// A path as typed, made absolute against the working folder when it is relative, lexically
// (no link is resolved, so that a path through a link stays one). An empty text stays empty.
std::string absolutePath(const std::string& path);
void addHelperCommands(CLI::App& app, Context& context);
void addProtectCommands(CLI::App& app, Context& context);

}  // namespace orvane::cli
