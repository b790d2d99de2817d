#include "cli/context.hpp"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane::cli {

std::string absolutePath(const std::string& path) {
    if (path.empty() || path.starts_with('/')) return path;
    char cwd[4096];
    if (!::getcwd(cwd, sizeof cwd)) return path;
    return standardizePath(appendingPathComponent(cwd, path), [](const std::string&) { return false; });
}

void printJSON(const nlohmann::ordered_json& document) {
    std::cout << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void printLine(std::string_view line) { std::cout << escapeControlCharacters(line) << '\n'; }

void printError(const std::string& sentence) { std::cerr << "orvane: " << escapeControlCharacters(sentence) << '\n'; }

Input readInput(const std::string& fileOrDash, std::size_t limitBytes) {
    const std::string tooLarge =
        "The input is larger than " + std::to_string(limitBytes / (1024 * 1024)) + " MiB, more than any plan needs.";
    std::string text;
    if (fileOrDash == "-") {
        char buffer[65536];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
            text.append(buffer, n);
            if (text.size() > limitBytes) return {std::nullopt, tooLarge};
        }
        return {std::move(text), {}};
    }
    // Never waits on a FIFO or a device, and never reads past the limit.
    auto read = readFile(fileOrDash, limitBytes);
    if (read.bytes) return {std::move(read.bytes), {}};
    if (read.failure == ReadFailure::tooLarge) return {std::nullopt, tooLarge};
    return {std::nullopt, "Cannot read " + fileOrDash + ": it " + std::string(readFailureClause(read.failure)) + "."};
}

}  // namespace orvane::cli
