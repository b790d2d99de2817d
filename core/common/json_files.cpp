#include "core/common/json_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <random>
#include <set>
#include <vector>

#include "core/common/path.hpp"

namespace orvane {

namespace {

constexpr std::uint64_t kDefaultReadBound = 256ull * 1024 * 1024;

// A moment of the years 1 to 9999 from whole Unix seconds and a fraction; none outside them.
std::optional<TimePoint> dateFromUnixParts(std::int64_t seconds, std::chrono::duration<double> fraction) {
    using namespace std::chrono;
    if (seconds < kEarliestDateUnixSeconds - 1 || seconds >= kDateEndUnixSeconds) return std::nullopt;
    const TimePoint date = TimePoint(std::chrono::seconds(seconds)) + round<Clock::duration>(fraction);
    const auto unix = floor<std::chrono::seconds>(date.time_since_epoch()).count();
    if (unix < kEarliestDateUnixSeconds || unix >= kDateEndUnixSeconds) return std::nullopt;
    return date;
}

}  // namespace

double secondsSinceReferenceDate(TimePoint date) {
    using namespace std::chrono;
    return duration<double>(date.time_since_epoch()).count() - kReferenceDateOffset;
}

std::optional<TimePoint> dateFromReferenceSeconds(double seconds) {
    // Compared as a double first, so that the whole part below always fits its integer.
    constexpr double earliest = static_cast<double>(kEarliestDateUnixSeconds) - kReferenceDateOffset;
    constexpr double end = static_cast<double>(kDateEndUnixSeconds) - kReferenceDateOffset;
    if (!(seconds >= earliest && seconds < end)) return std::nullopt;  // NaN fails too
    const double whole = std::floor(seconds);
    return dateFromUnixParts(static_cast<std::int64_t>(whole) + static_cast<std::int64_t>(kReferenceDateOffset),
                             std::chrono::duration<double>(seconds - whole));
}

std::string iso8601(TimePoint date) {
    std::time_t t = Clock::to_time_t(date);
    std::tm utc{};
    gmtime_r(&t, &utc);
    std::array<char, 48> buffer{};
    // Written by hand: strftime's %Y gives year 1 as "1", not "0001".
    std::snprintf(buffer.data(), buffer.size(), "%04ld-%02d-%02dT%02d:%02d:%02dZ",
                  static_cast<long>(utc.tm_year) + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                  utc.tm_sec);
    return buffer.data();
}

std::optional<TimePoint> parseISO8601(std::string_view text) {
    auto digits = [&](std::size_t at, std::size_t count) -> std::optional<int> {
        if (at + count > text.size()) return std::nullopt;
        int value = 0;
        for (std::size_t i = at; i < at + count; ++i) {
            if (text[i] < '0' || text[i] > '9') return std::nullopt;
            value = value * 10 + (text[i] - '0');
        }
        return value;
    };
    auto year = digits(0, 4), month = digits(5, 2), day = digits(8, 2);
    auto hour = digits(11, 2), minute = digits(14, 2), second = digits(17, 2);
    if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
    if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':')
        return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 ||
        *second > 60)
        return std::nullopt;

    std::size_t at = 19;
    double fraction = 0;
    if (at < text.size() && text[at] == '.') {
        double scale = 0.1;
        ++at;
        std::size_t start = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            fraction += (text[at] - '0') * scale;
            scale /= 10;
            ++at;
        }
        if (at == start) return std::nullopt;
    }
    long offsetSeconds = 0;
    if (at < text.size() && text[at] == 'Z') {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        auto oh = digits(at + 1, 2), om = digits(at + 4, 2);
        if (!oh || !om || text.size() < at + 6 || text[at + 3] != ':') return std::nullopt;
        offsetSeconds = (*oh * 3600L + *om * 60L) * (text[at] == '-' ? -1 : 1);
        at += 6;
    } else {
        return std::nullopt;
    }
    if (at != text.size()) return std::nullopt;

    std::tm fields{};
    fields.tm_year = *year - 1900;
    fields.tm_mon = *month - 1;
    fields.tm_mday = *day;
    fields.tm_hour = *hour;
    fields.tm_min = *minute;
    fields.tm_sec = *second;
    const std::time_t t = timegm(&fields);
    return dateFromUnixParts(static_cast<std::int64_t>(t) - offsetSeconds, std::chrono::duration<double>(fraction));
}

nlohmann::ordered_json wrapPayload(nlohmann::ordered_json data) {
    nlohmann::ordered_json wrapped;
    wrapped["v"] = kPayloadVersion;
    wrapped["data"] = std::move(data);
    return wrapped;
}

nlohmann::ordered_json unwrapPayload(const nlohmann::ordered_json& document) {
    if (document.is_object() && document.contains("v") && document.contains("data") &&
        document["v"].is_number_integer())
        return document["data"];
    return document;
}

StrictJSON parseJSONStrictly(std::string_view text, int maxDepth) {
    using json = nlohmann::json;
    struct Refused {
        std::string why;
    };
    std::vector<std::set<std::string>> keys;  // one set per open object
    auto watch = [&](int depth, json::parse_event_t event, json& parsed) {
        if (depth > maxDepth) throw Refused{"it is nested more than " + std::to_string(maxDepth) + " levels deep"};
        switch (event) {
            case json::parse_event_t::object_start: keys.emplace_back(); break;
            case json::parse_event_t::object_end:
                if (!keys.empty()) keys.pop_back();
                break;
            case json::parse_event_t::key:
                if (!keys.empty() && !keys.back().insert(parsed.get<std::string>()).second)
                    throw Refused{"the key \"" + parsed.get<std::string>() + "\" appears twice in one object"};
                break;
            default: break;
        }
        return true;
    };
    try {
        return {json::parse(text.begin(), text.end(), watch), {}};
    } catch (const Refused& refused) {
        return {std::nullopt, "It is not accepted JSON: " + refused.why + "."};
    } catch (const json::exception& e) {
        std::string detail = e.what();
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..." reads better without its tag.
        if (auto close = detail.find("] "); close != std::string::npos) detail.erase(0, close + 2);
        return {std::nullopt, "It is not valid JSON: " + detail};
    }
}

std::string_view readFailureClause(ReadFailure failure) {
    switch (failure) {
        case ReadFailure::missing: return "does not exist";
        case ReadFailure::notRegularFile: return "is not a regular file";
        case ReadFailure::tooLarge: return "is too large";
        case ReadFailure::unreadable: return "cannot be read";
    }
    return "cannot be read";
}

RegularFile::RegularFile(const std::string& path) {
    auto missingOr = [](ReadFailure otherwise) {
        return errno == ENOENT || errno == ENOTDIR ? ReadFailure::missing : otherwise;
    };
    struct stat facts {};
    // Looked at before it is opened: opening a device can do something by itself.
    if (::lstat(path.c_str(), &facts) != 0) {
        failure_ = missingOr(ReadFailure::unreadable);
        return;
    }
    if (!S_ISREG(facts.st_mode)) {
        failure_ = ReadFailure::notRegularFile;
        return;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        failure_ = missingOr(errno == ELOOP ? ReadFailure::notRegularFile : ReadFailure::unreadable);
        return;
    }
    // Asked again of what was opened, since the name may have been given to something else.
    if (::fstat(fd, &facts) != 0 || !S_ISREG(facts.st_mode)) {
        failure_ = S_ISREG(facts.st_mode) ? ReadFailure::unreadable : ReadFailure::notRegularFile;
        ::close(fd);
        return;
    }
    fd_ = fd;
    size_ = static_cast<std::int64_t>(facts.st_size);
}

RegularFile::~RegularFile() {
    if (fd_ >= 0) ::close(fd_);
}

FileRead readFile(const std::string& path, std::uint64_t maxBytes) {
    RegularFile file(path);
    if (!file.isOpen()) return {std::nullopt, file.failure()};
    if (static_cast<std::uint64_t>(file.size()) > maxBytes) return {std::nullopt, ReadFailure::tooLarge};
    std::string content;
    content.reserve(static_cast<std::size_t>(file.size()));
    std::array<char, 65536> chunk{};
    for (;;) {
        // One byte past the bound is enough to know that the file grew beyond it.
        const std::uint64_t left = maxBytes - content.size();
        const std::size_t want = left >= chunk.size() ? chunk.size() : static_cast<std::size_t>(left) + 1;
        ssize_t n = ::read(file.fd(), chunk.data(), want);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return {std::nullopt, ReadFailure::unreadable};
        if (n == 0) break;
        if (static_cast<std::uint64_t>(n) > left) return {std::nullopt, ReadFailure::tooLarge};
        content.append(chunk.data(), static_cast<std::size_t>(n));
    }
    return {std::move(content), ReadFailure::unreadable};
}

std::optional<std::string> readFile(const std::string& path) { return readFile(path, kDefaultReadBound).bytes; }

FileRead readFileHead(const std::string& path, std::uint64_t maxBytes) {
    RegularFile file(path);
    if (!file.isOpen()) return {std::nullopt, file.failure()};
    std::string content(static_cast<std::size_t>(std::min<std::uint64_t>(maxBytes, 65536)), '\0');
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t n = ::read(file.fd(), content.data() + filled, content.size() - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return {std::nullopt, ReadFailure::unreadable};
        if (n == 0) break;
        filled += static_cast<std::size_t>(n);
    }
    content.resize(filled);
    return {std::move(content), ReadFailure::unreadable};
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
    std::string dir = deletingLastPathComponent(path);
    if (dir.empty()) dir = ".";
    std::random_device entropy;
    std::string temporary = appendingPathComponent(
        dir, "." + lastPathComponent(path) + ".tmp-" + std::to_string(entropy()));

    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                    static_cast<mode_t>(mode));
    if (fd < 0) return false;
    bool ok = true;
    std::size_t written = 0;
    while (ok && written < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ok = false;
        else written += static_cast<std::size_t>(n);
    }
    // The umask must not narrow the mode the caller asked for.
    ok = ok && ::fchmod(fd, static_cast<mode_t>(mode)) == 0;
    ok = ok && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    ok = ok && ::rename(temporary.c_str(), path.c_str()) == 0;
    if (!ok) ::unlink(temporary.c_str());
    return ok;
}

}  // namespace orvane
