#include "core/scan/disk_measure.hpp"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <set>

#include "core/common/checked.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/common/facts.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane {
namespace {

constexpr const char* kDu = "/usr/bin/du";
constexpr double kSingleTimeout = 180;

// A decimal integer with an optional sign and nothing else around it.
std::optional<std::int64_t> decimal(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty() || text.front() == '+') return std::nullopt;
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// KiB to bytes; a count that cannot be bytes is no answer.
std::optional<std::int64_t> kibToBytes(std::int64_t kib) {
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(kib, std::int64_t{1024}, &bytes)) return std::nullopt;
    return bytes;
}

std::int64_t totalFrom(const std::vector<std::string>& lines) {
    for (const auto& line : lines) {
        std::string_view field(line);
        if (auto tab = field.find('\t'); tab != std::string_view::npos) field = field.substr(0, tab);
        if (field.empty()) continue;
        if (auto kib = decimal(field))
            if (auto bytes = kibToBytes(*kib)) return *bytes;
    }
    return -1;
}

// GNU quotes names in messages the way a shell would read them: '/plain', "/it's",
// '/new'$'\n''line', or ‘/curly’ in some UTF-8 locales.
std::string unquoteGNU(std::string_view text) {
    if (text.size() >= 6 && text.starts_with("\u2018") && text.ends_with("\u2019"))
        return std::string(text.substr(3, text.size() - 6));
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        std::string out;
        for (std::size_t i = 1; i + 1 < text.size(); ++i) {
            if (text[i] == '\\' && i + 2 < text.size() && std::string_view("\"\\$`").find(text[i + 1]) != std::string_view::npos)
                ++i;
            out += text[i];
        }
        return out;
    }
    if (text.empty() || (text.front() != '\'' && !text.starts_with("$'"))) return std::string(text);
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\'') {  // \' between quoted runs
            out += '\'';
            i += 2;
        } else if (text.substr(i).starts_with("$'")) {
            i += 2;
            while (i < text.size() && text[i] != '\'') {
                if (text[i] == '\\' && i + 1 < text.size()) {
                    char c = text[i + 1];
                    i += 2;
                    switch (c) {
                        case 'n': out += '\n'; break;
                        case 't': out += '\t'; break;
                        case 'r': out += '\r'; break;
                        case 'a': out += '\a'; break;
                        case 'b': out += '\b'; break;
                        case 'f': out += '\f'; break;
                        case 'v': out += '\v'; break;
                        case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': {
                            int value = c - '0';
                            for (int k = 0; k < 2 && i < text.size() && text[i] >= '0' && text[i] <= '7'; ++k)
                                value = value * 8 + (text[i++] - '0');
                            out += static_cast<char>(value);
                            break;
                        }
                        default: out += c;
                    }
                } else {
                    out += text[i++];
                }
            }
            ++i;
        } else if (text[i] == '\'') {
            ++i;
            while (i < text.size() && text[i] != '\'') out += text[i++];
            ++i;
        } else {
            out += text[i++];
        }
    }
    return out;
}

}  // namespace

std::int64_t duSize(const std::string& path, const Facts& facts) {
    auto r = facts.run(kDu, {"-sxk", path}, kSingleTimeout, false, ToolErrors::discarded);
    if (r.timedOut || r.lines.empty()) return -1;
    return totalFrom(r.lines);
}

DuMeasurement duMeasure(const std::string& path, const Facts& facts) {
    auto r = facts.run(kDu, {"-sxk", path}, kSingleTimeout, false, ToolErrors::separate);
    DuMeasurement m;
    m.denied = parseDuDenied(r.errLines);
    m.bytes = r.timedOut ? -1 : totalFrom(r.lines);
    return m;
}

std::map<std::string, std::int64_t> duBatchSizes(const std::vector<std::string>& paths, double timeout,
                                                 const Facts& facts) {
    return duBatchMeasure(paths, timeout, facts).sizes;
}

DuBatch duBatchMeasure(const std::vector<std::string>& paths, double timeout, const Facts& facts) {
    if (paths.empty()) return {};
    std::vector<std::string> args = {"-skx"};
    // "--" so that a path beginning with "-" is never taken for an option.
    args.push_back("--");
    args.insert(args.end(), paths.begin(), paths.end());
    auto r = facts.run(kDu, args, timeout, false, ToolErrors::separate);
    return {parseDuBatch(r.lines, paths), parseDuDenied(r.errLines)};
}

std::map<std::string, std::int64_t> parseDuBatch(const std::vector<std::string>& lines,
                                                 const std::vector<std::string>& paths) {
    std::map<std::string, std::int64_t> sizes;
    for (const auto& line : lines) {
        auto tab = line.find('\t');
        if (tab == std::string::npos || tab == 0 || tab + 1 == line.size()) continue;
        auto kib = decimal(std::string_view(line).substr(0, tab));
        if (!kib) continue;
        auto bytes = kibToBytes(*kib);
        if (!bytes) continue;
        sizes.try_emplace(line.substr(tab + 1), *bytes);
    }
    for (const auto& path : paths) sizes.try_emplace(path, -1);
    return sizes;
}

std::vector<std::string> parseDuDenied(const std::vector<std::string>& errLines) {
    std::vector<std::string> denied;
    for (const auto& line : errLines) {
        std::string_view text(line);
        // BSD du names itself "du"; GNU du names itself as it was started, here "/usr/bin/du".
        if (text.starts_with("/usr/bin/du: ")) text.remove_prefix(9);
        if (!text.starts_with("du: ")) continue;
        std::string_view rest;
        bool matched = false;
        for (std::string_view ending : {": Operation not permitted", ": Permission denied"}) {
            if (text.ends_with(ending) && text.size() >= 4 + ending.size()) {
                rest = text.substr(4, text.size() - 4 - ending.size());
                matched = true;
                break;
            }
        }
        if (!matched) continue;
        std::string path;
        if (rest.starts_with("cannot read directory ")) path = unquoteGNU(rest.substr(22));
        else if (rest.starts_with("cannot access ")) path = unquoteGNU(rest.substr(14));
        else path = std::string(rest);
        if (path.starts_with('/')) denied.push_back(std::move(path));
    }
    return denied;
}

std::vector<std::string> topmostPaths(const std::vector<std::string>& paths) {
    std::vector<std::string> unique(paths);
    std::sort(unique.begin(), unique.end());
    unique.erase(std::unique(unique.begin(), unique.end()), unique.end());
    std::stable_sort(unique.begin(), unique.end(), [](const std::string& a, const std::string& b) {
        return characterCount(a) < characterCount(b);
    });
    std::set<std::string> kept;
    for (const auto& path : unique) {
        bool inside = false;
        for (std::string parent = deletingLastPathComponent(path); parent.size() >= 2;
             parent = deletingLastPathComponent(parent)) {
            if (kept.contains(parent)) {
                inside = true;
                break;
            }
        }
        if (!inside) kept.insert(path);
    }
    return {kept.begin(), kept.end()};
}

std::optional<bool> listingRefused(const std::string& path, const Facts& facts) {
    if (!isDirectory(path, facts)) return std::nullopt;
    return !facts.list(path).has_value();
}

bool isDirectory(const std::string& path, const Facts& facts) {
    auto resolved = facts.resolve(path);
    if (!resolved) return false;
    auto entry = facts.lstat(*resolved);
    return entry && entry->isDirectory();
}

std::int64_t countFiles(const std::string& path) {
    namespace fs = std::filesystem;
    struct stat st{};
    if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return 1;
    std::error_code ec;
    fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied, ec);
    if (ec) return 0;
    std::int64_t count = 0;
    for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        if (it->is_symlink(ec)) continue;
        if (it->is_regular_file(ec)) count = checkedAdd(count, 1);
    }
    return count;
}

}  // namespace orvane
