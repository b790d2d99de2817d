// orvane repair, history and moves: crash repair, the action log and the relocations on record.
#include <algorithm>

#include "cli/context.hpp"
#include "core/common/byte_counts.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/repair.hpp"

namespace orvane::cli {
namespace {

int runRepair(bool json) {
    const auto messages = Ledger::repairInterrupted();
    Ledger::flush();  // the REPAIR lines are on disk before the program ends
    if (json) {
        printJSON({{"messages", messages}});
    } else if (messages.empty()) {
        printLine("Nothing to repair.");
    } else {
        for (const auto& message : messages) printLine(message);
    }
    return kDone;
}

struct HistoryOptions {
    std::string since;
    bool all = false;
    bool json = false;
};

int runHistory(const HistoryOptions& options) {
    std::optional<TimePoint> since;
    if (!options.since.empty()) {
        since = parseISO8601(options.since);
        if (!since) {
            printError("\"" + options.since + "\" is not an ISO 8601 date such as 2026-01-31T12:00:00Z.");
            return kBadInput;
        }
    }
    const auto lines = foldActionLog(options.all ? Ledger::wholeLog() : Ledger::actions(since));
    if (options.json) {
        printJSON({{"lines", lines}});
    } else if (lines.empty()) {
        printLine(since ? "Nothing was logged after " + iso8601(*since) + "." : std::string("The action log is empty."));
    } else {
        for (const auto& line : lines) printLine(line);
    }
    return kDone;
}

int runMoves(bool json) {
    auto moves = Ledger::loadMoves();
    std::stable_sort(moves.begin(), moves.end(), [](const MoveRecord& a, const MoveRecord& b) { return a.date > b.date; });
    // Each record holds at most kMaxByteCount, but many of them can still add up past 64 bits.
    std::int64_t total = 0;
    for (const auto& move : moves)
        if (move.bytes > 0) total = addBytesOrUnknown(total, move.bytes);

    if (json) {
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        for (const auto& move : moves) {
            // The record's own form, with its date readable and its size in words.
            nlohmann::ordered_json row = JSONCoding<MoveRecord>::encode(move);
            row["date"] = iso8601(move.date);
            row["size"] = fmtBytes(move.bytes);
            rows.push_back(std::move(row));
        }
        printJSON({{"moves", std::move(rows)},
                   {"totalBytes", total < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(total)}});
        return kDone;
    }
    if (moves.empty()) {
        printLine("No moves on record.");
        return kDone;
    }
    for (const auto& move : moves) {
        printLine(fmtDate(move.date) + "  " + move.title + " (" + fmtBytes(move.bytes) + ")");
        printLine("    " + move.src + (move.symlinked ? " -> " : " moved to ") + move.dst);
    }
    printLine(std::to_string(moves.size()) + (moves.size() == 1 ? " move, " : " moves, ") +
              (total < 0 ? std::string("unknown") : fmtBytes(total)) + " in all.");
    return kDone;
}

}  // namespace

void addRepairCommand(CLI::App& app, Context& context) {
    auto json = std::make_shared<bool>(false);
    auto* repair = app.add_subcommand(
        "repair",
        "Finish or undo what an interrupted compaction, compression, dedupe or move left on disk, "
        "judging by what is really there, and print one sentence per repair (\"Nothing to repair.\" "
        "when there was none). The front end runs this at launch, before anything else touches the "
        "disk. A move whose drive is away stays pending and is retried next time. Exit 0.");
    repair->add_flag("--json", *json, "Print {\"messages\": [...]}");
    repair->callback([json, &context] { context.exitCode = runRepair(*json); });
}

void addHistoryCommand(CLI::App& app, Context& context) {
    auto options = std::make_shared<HistoryOptions>();
    auto* history = app.add_subcommand(
        "history",
        "Show the action log, what was done to the disk, one line per action, with long runs of "
        "merges and Trash emptying folded into one line. By default the last 200 lines of the "
        "log's recent part; --since the lines after a date; --all both generations of the log.");
    auto* since = history->add_option("--since", options->since, "Only lines dated after this ISO 8601 time, e.g. 2026-01-31T12:00:00Z");
    history->add_flag("--all", options->all, "Every line of the log and of its older generation")->excludes(since);
    history->add_flag("--json", options->json, "Print {\"lines\": [...]}");
    history->callback([options, &context] { context.exitCode = runHistory(*options); });
}

void addMovesCommand(CLI::App& app, Context& context) {
    auto json = std::make_shared<bool>(false);
    auto* moves = app.add_subcommand(
        "moves",
        "List the items relocated to other drives, newest first: what each was, where it went, "
        "its size, and whether a shortcut stands in its old place. Exit 0.");
    moves->add_flag("--json", *json, "Print {\"moves\": [...], \"totalBytes\": N}, N null when the total is unknown");
    moves->callback([json, &context] { context.exitCode = runMoves(*json); });
}

}  // namespace orvane::cli
