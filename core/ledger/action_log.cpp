#include "core/ledger/action_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "core/common/json_files.hpp"
#include "core/common/text.hpp"
#include "core/ledger/internal/store.hpp"
#include "core/ledger/internal/utf8_repair.hpp"

namespace orvane::Ledger {

using namespace ledger::internal;

namespace {

constexpr std::string_view kLogFile = "actions.log";
constexpr std::string_view kRotatedLogFile = "actions.log.1";

std::vector<std::string> nonEmptyLines(std::string_view text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) lines.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> lastLines(std::vector<std::string> lines, std::size_t n) {
    if (lines.size() > n) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(n));
    return lines;
}

std::string oneLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else out.push_back(c);
    }
    return out;
}

bool writeAll(int fd, std::string_view bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        written += static_cast<std::size_t>(n);
    }
    return true;
}

void appendLine(const std::string& text) {
    if (isRetired()) return;
    createLedgerDir();
    const std::string path = ledgerFile(kLogFile);
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) == 0 && facts.st_size > logRotationBytes) {
        const std::string rotated = ledgerFile(kRotatedLogFile);
        ::unlink(rotated.c_str());
        ::rename(path.c_str(), rotated.c_str());
    }
    // One write per line: a reader, or a crash, sees the whole line or none of it.
    const std::string line = "[" + iso8601(Clock::now()) + "] " + oneLine(text) + "\n";
    // Without blocking and without following a link: a FIFO in the log's place would otherwise
    // hold the ledger's queue, and every command waiting on it, until someone read it.
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        // Only a missing log is started afresh; one that cannot be opened is left as it is.
        if (errno == ENOENT) writeFileAtomically(path, line);
        return;
    }
    struct stat opened {};
    if (::fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode)) writeAll(fd, line);
    ::close(fd);
}

// The bytes from `offset` to the end of the file, at most `limit` of them.
std::optional<std::string> readWindow(int fd, std::int64_t offset, std::int64_t limit) {
    std::string bytes;
    bytes.resize(static_cast<std::size_t>(limit));
    std::size_t got = 0;
    while (got < bytes.size()) {
        ssize_t n = ::pread(fd, bytes.data() + got, bytes.size() - got, static_cast<off_t>(offset) + static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(got);
    return bytes;
}

std::vector<std::string> windowedActions(std::optional<TimePoint> since) {
    if (isRetired()) return {};
    openLedgerDir();
    RegularFile log(ledgerFile(kLogFile));
    if (!log.isOpen()) return {};
    const std::int64_t size = log.size();
    const std::int64_t offset = std::max<std::int64_t>(0, size - actionsWindowBytes);
    const auto window = readWindow(log.fd(), offset, size - offset);
    if (!window) return {};

    auto lines = nonEmptyLines(repairUTF8(*window));
    if (size > actionsWindowBytes && !lines.empty()) lines.erase(lines.begin());  // it may be cut
    if (!since) return lastLines(std::move(lines), actionsDefaultLines);

    std::vector<std::string> kept;
    for (auto& line : lines) {
        if (!line.starts_with('[')) continue;
        const auto close = line.find(']');
        if (close == std::string::npos) continue;
        auto date = parseISO8601(std::string_view(line).substr(1, close - 1));
        if (date && *date > *since) kept.push_back(std::move(line));
    }
    return kept;
}

}  // namespace

std::string logPath() { return ledgerFile(kLogFile); }
std::string rotatedLogPath() { return ledgerFile(kRotatedLogFile); }

void log(std::string_view text) {
    ledgerQueue().async([text = std::string(text)] { appendLine(text); });
}

std::vector<std::string> tail(std::size_t n) {
    return ledgerQueue().sync([n]() -> std::vector<std::string> {
        auto text = readLedgerFile(kLogFile);
        if (!text || !isValidUTF8(*text)) return {};
        return lastLines(nonEmptyLines(*text), n);
    });
}

std::vector<std::string> actions(std::optional<TimePoint> since) {
    return ledgerQueue().sync([since] { return windowedActions(since); });
}

std::vector<std::string> wholeLog() {
    return ledgerQueue().sync([] {
        std::string text = repairUTF8(readLedgerFile(kRotatedLogFile).value_or(""));
        if (!text.empty() && text.back() != '\n') text.push_back('\n');
        text += repairUTF8(readLedgerFile(kLogFile).value_or(""));
        return nonEmptyLines(text);
    });
}

int purgeLeakedTestLines() {
    return ledgerQueue().sync([] {
        auto text = readLedgerFile(kLogFile);
        if (!text || !isValidUTF8(*text)) return 0;
        std::string kept;
        int removed = 0;
        std::size_t start = 0;
        bool first = true;
        for (;;) {
            std::size_t end = text->find('\n', start);
            const std::string_view piece =
                std::string_view(*text).substr(start, end == std::string::npos ? std::string::npos : end - start);
            if (isLeakedTestLogLine(piece)) {
                ++removed;
            } else {
                if (!first) kept.push_back('\n');
                kept.append(piece);
                first = false;
            }
            if (end == std::string::npos) break;
            start = end + 1;
        }
        if (removed == 0 || isRetired()) return 0;
        writeLedgerFile(kLogFile, kept);
        return removed;
    });
}

}  // namespace orvane::Ledger

namespace orvane {
namespace {

// What follows the "[date]" of a line, blanks trimmed; the whole line when it has no date.
std::string_view lineBody(std::string_view line) {
    if (!line.starts_with('[')) return line;
    const auto close = line.find(']');
    if (close == std::string_view::npos) return line;
    auto body = line.substr(close + 1);
    while (!body.empty() && (body.front() == ' ' || body.front() == '\t')) body.remove_prefix(1);
    return body;
}

struct FoldRow {
    std::string_view word;
    std::string_view sentence;
};
constexpr std::array<FoldRow, 2> kFoldTable = {{
    {"DEDUPE", "duplicate copies merged; each is still in place, sharing storage with its original."},
    {"EMPTY-TRASH", "items removed from the Trash for good."},
}};

const FoldRow* verbOf(std::string_view line) {
    const auto body = lineBody(line);
    for (const auto& row : kFoldTable)
        if (body.starts_with(row.word) && body.substr(row.word.size()).starts_with(' ')) return &row;
    return nullptr;
}

}  // namespace

bool isLeakedTestLogLine(std::string_view line) {
    const auto body = lineBody(line);
    if (body.find("/var/folders/") != std::string_view::npos &&
        (body.starts_with("REPAIR Recovered interrupted move of Model live \u2014 ") ||
         body.starts_with("REPAIR Recovered interrupted move of Model repair-honest \u2014 ")))
        return true;
    return body == "REPAIR doc.pdf: compression finished, leftover backup removed" ||
           body == "REPAIR file2: restored after an interrupted compression" ||
           body == "REPAIR legacy.doc: restored after an interrupted compression";
}

std::vector<std::string> foldActionLog(const std::vector<std::string>& lines) {
    std::vector<std::string> folded;
    std::size_t i = 0;
    while (i < lines.size()) {
        const FoldRow* verb = verbOf(lines[i]);
        if (!verb) {
            folded.push_back(lines[i++]);
            continue;
        }
        std::size_t end = i + 1;
        while (end < lines.size() && verbOf(lines[end]) == verb) ++end;
        const std::size_t run = end - i;
        if (run < 3) {
            folded.insert(folded.end(), lines.begin() + static_cast<std::ptrdiff_t>(i),
                          lines.begin() + static_cast<std::ptrdiff_t>(end));
        } else {
            const auto close = lines[i].find(']');
            std::string line = close == std::string::npos ? std::string() : lines[i].substr(0, close + 1) + " ";
            line += std::string(verb->word) + " \u00D7 " + std::to_string(run) + " \u2014 " +
                    std::string(verb->sentence) + " The full list is in the log file.";
            folded.push_back(std::move(line));
        }
        i = end;
    }
    return folded;
}

std::string mergeSummaryLine(std::int64_t copies, std::int64_t originals, std::string_view bytes,
                             std::string_view origin) {
    std::string line = "MERGED " + std::to_string(copies) + " duplicate cop" + (copies == 1 ? "y" : "ies") +
                       " into " + std::to_string(originals) + " original" + (originals == 1 ? "" : "s") +
                       " \u2014 ";
    line += bytes;
    line += " returned. Every file is still in place; the copies share storage with their originals. Started from ";
    line += origin;
    line += ".";
    return line;
}

}  // namespace orvane
