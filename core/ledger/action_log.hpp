// The action log the user reads, one line per thing done to the disk, and how its lines are folded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"

namespace orvane::Ledger {

// The log is rotated once it is larger than this, keeping one older generation.
inline constexpr std::int64_t logRotationBytes = 2'000'000;
// actions(since:) reads no more than this from the end of the log.
inline constexpr std::int64_t actionsWindowBytes = 131'072;
inline constexpr std::size_t actionsDefaultLines = 200;

std::string logPath();         // "actions.log"
std::string rotatedLogPath();  // "actions.log.1"

// Appends "[2026-01-31T12:00:00Z] text\n" without waiting: the line is on disk after flush().
// The text should begin with an upper-case word naming the action ("REPAIR", "MERGED"). Line
// breaks in it are written as "\n" so that one call is always one line.
void log(std::string_view text);

// The last `n` non-empty lines of the log; empty when it cannot be read or is not UTF-8.
std::vector<std::string> tail(std::size_t n);

// The lines of the last 128 KiB of the log (invalid UTF-8 repaired, a first line that may be cut
// dropped): with a date, those dated strictly after it; without, the last 200.
std::vector<std::string> actions(std::optional<TimePoint> since);

// Both generations of the log, the older first; invalid UTF-8 repaired. For display only: it
// reads everything, up to twice the rotation size.
std::vector<std::string> wholeLog();

// Removes the lines isLeakedTestLogLine accepts and returns how many went. The log is left alone
// when none did, when it cannot be read or is not UTF-8, or when the ledger is retired.
int purgeLeakedTestLines();

}  // namespace orvane::Ledger

namespace orvane {

// Whether a line is one that tests of this system once wrote to a user's own log.
bool isLeakedTestLogLine(std::string_view line);

// Long runs of DEDUPE or EMPTY-TRASH lines shortened to one line each, for display.
std::vector<std::string> foldActionLog(const std::vector<std::string>& lines);

// "MERGED 3 duplicate copies into 2 originals — 1.2 GB returned. ..."; `bytes` comes formatted.
std::string mergeSummaryLine(std::int64_t copies, std::int64_t originals, std::string_view bytes,
                             std::string_view origin);

}  // namespace orvane
