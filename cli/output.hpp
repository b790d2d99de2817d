// How every command shows what it found: tables lined up by the columns a terminal gives each
// name, names escaped so that none can move the cursor, counts with their plurals, sizes with
// "unknown" for what was not measured, and a progress line that only a terminal sees.
#pragma once

#include "core/common/format.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::cli {

// A name or path as a terminal may show it: control characters and bad UTF-8 escaped.
std::string shown(std::string_view name);

// fmtBytes, or "unknown" for a size that was not measured (any negative count).
std::string sizeText(std::int64_t bytes);

// Rows of cells, each column as wide as its widest cell; cells are escaped on the way in.
class Table {
public:
    enum class Align { left, right };
    explicit Table(std::vector<Align> columns);

    void row(std::vector<std::string> cells);
    // A line of its own under the last row, indented to the second column.
    void note(std::string_view line);
    bool empty() const { return rows_.empty(); }

    // Every row and note, one string each; the last column is never padded.
    std::vector<std::string> lines() const;

private:
    struct Line {
        std::vector<std::string> cells;
        bool isNote = false;
    };
    std::vector<Align> columns_;
    std::vector<Line> rows_;
};

// One line on standard error that a terminal overwrites as work moves on, and clears at the end.
// Shown only when standard error is a terminal and the output is not JSON, so that neither a log
// nor a pipe ever holds it.
class Progress {
public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::string_view text);
    void clear();

private:
    bool shown_;
    bool dirty_ = false;
};

}  // namespace orvane::cli
