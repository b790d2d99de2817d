// orvane repair, history and moves: crash repair, the action log and the relocations on record.
#include <algorithm>

#include "cli/command.hpp"
#include "core/common/byte_counts.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/repair.hpp"
#include "core/relocation/destinations.hpp"
#include "core/relocation/drive_mount.hpp"

namespace orvane::cli {
namespace {

// The ledger of a recorded Mac is not this machine's, and its repair would write: these commands
// speak only of this machine's.
void onlyThisMachine(const Invocation& in, std::string_view command) {
    if (in.facts.recorded)
        throw OVError("The " + std::string(command) + " command reads this machine's ledger, not a recorded Mac's.");
}

Result runRepair(const Invocation& in) {
    if (in.facts.recorded)
        return nothingChangedOnARecording({"Would finish or undo what interrupted work left, as its journals say."});
    const auto messages = Ledger::repairInterrupted();
    Ledger::flush();  // the REPAIR lines are on disk before the program ends
    Result result;
    result.json = {{"messages", messages}};
    if (messages.empty()) result.line("Nothing to repair.");
    for (const auto& message : messages) result.line(message);
    return result;
}

struct HistoryOptions {
    std::string since;
    bool all = false;
};

Result runHistory(const HistoryOptions& options, const Invocation& in) {
    onlyThisMachine(in, "history");
    std::optional<TimePoint> since;
    if (!options.since.empty()) {
        since = parseISO8601(options.since);
        if (!since) throw OVError("\"" + options.since + "\" is not an ISO 8601 date such as 2026-01-31T12:00:00Z.");
    }
    const auto lines = foldActionLog(options.all ? Ledger::wholeLog() : Ledger::actions(since));
    Result result;
    result.json = {{"lines", lines}};
    if (lines.empty())
        result.line(since ? "Nothing was logged after " + iso8601(*since) + "." : std::string("The action log is empty."));
    for (const auto& line : lines) result.line(line);
    return result;
}

Result runMoves(const Invocation& in) {
    onlyThisMachine(in, "moves");
    auto moves = Ledger::loadMoves();
    std::stable_sort(moves.begin(), moves.end(), [](const MoveRecord& a, const MoveRecord& b) { return a.date > b.date; });
    // Each record holds at most kMaxByteCount, but many of them can still add up past 64 bits.
    std::int64_t total = 0;
    for (const auto& move : moves)
        if (move.bytes > 0) total = addBytesOrUnknown(total, move.bytes);

    Result result;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& move : moves) {
        // The record's own form, with its date readable and its size in words.
        nlohmann::ordered_json row = JSONCoding<MoveRecord>::encode(move);
        row["date"] = iso8601(move.date);
        row["size"] = fmtBytes(move.bytes);
        rows.push_back(std::move(row));
    }
    const auto away = missingDrives(moves, in.facts.exists);
    nlohmann::ordered_json missing = nlohmann::ordered_json::array();
    for (const auto& drive : away) {
        std::int64_t bytes = 0;
        for (const auto& move : drive.moves) bytes = addBytesOrUnknown(bytes, std::max<std::int64_t>(move.bytes, 0));
        missing.push_back({{"drive", drive.drive},
                           {"moves", static_cast<std::int64_t>(drive.moves.size())},
                           {"bytes", bytes < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(bytes)}});
    }
    result.json = {{"moves", std::move(rows)},
                   {"totalBytes", total < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(total)},
                   {"missingDrives", std::move(missing)}};
    if (moves.empty()) {
        result.line("No moves on record.");
        return result;
    }
    for (const auto& move : moves) {
        result.line(fmtDate(move.date) + "  " + move.title + " (" + fmtBytes(move.bytes) + ")");
        result.line("    " + move.src + (move.symlinked ? " -> " : " moved to ") + move.dst);
    }
    result.line(counted(static_cast<std::int64_t>(moves.size()), "move") + ", " + sizeText(total) + " in all.");
    for (const auto& drive : away)
        result.line(drive.drive + " is away: " + counted(static_cast<std::int64_t>(drive.moves.size()), "shortcut") +
                    " on this machine point into it. orvane moves mount \"" + drive.drive + "\" brings it back.");
    return result;
}

Result runMount(const std::string& name, const Invocation& in) {
    if (in.facts.recorded) return nothingChangedOnARecording({"Would look for " + name + " among the disks and mount it."});
    const DriveMount mount = mountDrive(name, in.facts);
    Result result;
    result.line(mount.line);
    result.status = mount.mounted ? kDone : kRefused;
    result.json = {{"mounted", mount.mounted}, {"line", mount.line}};
    return result;
}

}  // namespace

void addLedgerCommands(Registry& registry) {
    registry.add("repair",
                 "Finish or undo what an interrupted compaction, compression, dedupe or move left on disk, "
                 "judging by what is really there, and print one sentence per repair (\"Nothing to repair.\" "
                 "when there was none). The front end runs this at launch, before anything else touches the "
                 "disk. A move whose drive is away stays pending and is retried next time. Exit 0. --json prints "
                 "{\"messages\": [...]}.",
                 runRepair);

    auto options = std::make_shared<HistoryOptions>();
    auto* history = registry.add(
        "history",
        "Show the action log, what was done to the disk, one line per action, with long runs of "
        "merges and Trash emptying folded into one line. By default the last 200 lines of the "
        "log's recent part; --since the lines after a date; --all both generations of the log. --json prints "
        "{\"lines\": [...]}.",
        [options](const Invocation& in) { return runHistory(*options, in); });
    auto* since = history->add_option("--since", options->since, "Only lines dated after this ISO 8601 time, e.g. 2026-01-31T12:00:00Z");
    history->add_flag("--all", options->all, "Every line of the log and of its older generation")->excludes(since);

    auto* moves = registry.add(
        "moves",
        "List the items relocated to other drives, newest first: what each was, where it went, its size, and "
        "whether a shortcut stands in its old place; then the drives that shortcuts point into and that are away. "
        "Exit 0. --json prints {\"moves\": [...], \"totalBytes\": N, \"missingDrives\": [{\"drive\", \"moves\", "
        "\"bytes\"}]}, N null when the total is unknown.",
        runMoves);
    auto name = std::make_shared<std::string>();
    auto* mount = registry.add(*moves, "mount",
                               "Mount a drive that is plugged in but not mounted, by its name, so that the shortcuts "
                               "into it work again. Exit 0 when mounted, 1 otherwise.",
                               [name](const Invocation& in) { return runMount(*name, in); });
    mount->add_option("NAME", *name, "The drive's name")->required();
}

}  // namespace orvane::cli
