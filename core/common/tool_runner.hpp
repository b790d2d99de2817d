// The one way the system starts a program: no shell, no PATH search, both pipes drained at once,
// a bounded run time, and a result instead of an exception whatever happens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// What happens to a tool's standard error.
enum class ToolErrors {
    discarded,  // to the null device
    merged,     // into the standard output pipe, so its text is in `lines`
    separate,   // a pipe of its own, read into `errLines`
};

struct ToolResult {
    std::vector<std::string> lines;     // standard output, split, empty pieces dropped
    std::vector<std::string> errLines;  // standard error split on line feeds; only with `separate`
    bool timedOut = false;              // the run hit its time limit and was stopped
    std::int32_t status = -1;  // exit code, or the signal that ended it; -1: not started or given up on
    std::size_t skippedRecords = 0;  // NUL-delimited records left out for not being UTF-8
    bool operator==(const ToolResult&) const = default;
};

// Runs `tool` (an absolute path) with `args`, inheriting the environment, with standard input on
// the null device. Past `timeout` seconds the tool gets SIGTERM, and SIGKILL 3 seconds later. If
// its output is still open 4.5 seconds after the deadline (a grandchild holds the pipe), the run
// is given up: no lines, `timedOut`, status -1. Line output that is not valid UTF-8 yields no lines
// at all rather than a partial, possibly wrong answer. A NUL-delimited record is a file name, and
// Linux names may be any bytes: one that is not valid UTF-8 is left out alone and counted, so that
// one odd name cannot hide every other finding. Blocks the caller; safe from any thread.
ToolResult runToolSplit(const std::string& tool, const std::vector<std::string>& args, double timeout,
                        bool nulDelimited, ToolErrors errors);

// A tool's lines joined with line feeds again, for parsers of its whole text.
std::string joinedLines(const std::vector<std::string>& lines);

struct ToolRun {
    std::vector<std::string> lines;
    bool timedOut = false;
    std::int32_t status = -1;
    bool operator==(const ToolRun&) const = default;
};
// Runs to the end with no time limit, output and errors on the null device. The termination
// status, or -1 when the tool could not be started.
std::int32_t runStatus(const std::string& tool, const std::vector<std::string>& args);

// What the runner makes of a finished run's bytes: standard error split into lines when it is
// valid UTF-8; standard output split into lines (none at all when it is not valid UTF-8) or into
// NUL-delimited records (each one that is not valid UTF-8 left out and counted).
ToolResult toolResultFromOutput(std::string_view out, std::string_view err, bool nulDelimited, std::int32_t status,
                                bool timedOut);

// Splits decoded tool output the way the runner does: on NUL, or on line feeds where a line feed
// directly after a carriage return is part of one "\r\n" character and ends nothing. Empty pieces
// are dropped.
std::vector<std::string> splitToolOutput(std::string_view text, bool nulDelimited);

}  // namespace orvane
