#include "cli/output.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "core/common/format.hpp"
#include "core/common/text.hpp"

namespace orvane::cli {

std::string shown(std::string_view name) { return escapeControlCharacters(name); }

std::string sizeText(std::int64_t bytes) { return bytes < 0 ? "unknown" : fmtBytes(bytes); }

Table::Table(std::vector<Align> columns) : columns_(std::move(columns)) {}

void Table::row(std::vector<std::string> cells) {
    for (auto& cell : cells) cell = shown(cell);
    cells.resize(columns_.size());
    rows_.push_back({std::move(cells), false});
}

void Table::note(std::string_view line) { rows_.push_back({{shown(line)}, true}); }

std::vector<std::string> Table::lines() const {
    std::vector<std::size_t> widths(columns_.size(), 0);
    for (const auto& line : rows_) {
        if (line.isNote) continue;
        for (std::size_t c = 0; c < line.cells.size(); ++c)
            widths[c] = std::max(widths[c], displayWidth(line.cells[c]));
    }
    const std::size_t noteIndent = widths.empty() ? 0 : widths[0] + 2;
    std::vector<std::string> out;
    for (const auto& line : rows_) {
        if (line.isNote) {
            out.push_back(std::string(noteIndent, ' ') + line.cells.front());
            continue;
        }
        std::string text;
        for (std::size_t c = 0; c < line.cells.size(); ++c) {
            const std::string& cell = line.cells[c];
            const std::size_t pad = widths[c] - displayWidth(cell);
            const bool last = c + 1 == line.cells.size();
            if (c) text += "  ";
            if (columns_[c] == Align::right) text += std::string(pad, ' ') + cell;
            else text += last ? cell : cell + std::string(pad, ' ');
        }
        while (!text.empty() && text.back() == ' ') text.pop_back();
        out.push_back(std::move(text));
    }
    return out;
}

Progress::Progress(bool wanted) : shown_(wanted && ::isatty(STDERR_FILENO)) {}

Progress::~Progress() { clear(); }

void Progress::show(std::string_view text) {
    if (!shown_) return;
    std::cerr << "\r\033[K" << shown(text) << std::flush;
    dirty_ = true;
}

void Progress::clear() {
    if (!shown_ || !dirty_) return;
    std::cerr << "\r\033[K" << std::flush;
    dirty_ = false;
}

}  // namespace orvane::cli
