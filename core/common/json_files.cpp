#include "core/common/json_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

double secondsSinceReferenceDate(TimePoint date) {
    using namespace std::chrono;
    return duration<double>(date.time_since_epoch()).count() - kReferenceDateOffset;
}

TimePoint dateFromReferenceSeconds(double seconds) {
    using namespace std::chrono;
    if (!std::isfinite(seconds)) seconds = 0;
    // Clamp far beyond any real date so the cast to the clock's integer ticks cannot overflow.
    seconds = std::fmax(-1e11, std::fmin(1e11, seconds));
    return TimePoint(duration_cast<Clock::duration>(duration<double>(seconds + kReferenceDateOffset)));
}

std::string iso8601(TimePoint date) {
    std::time_t t = Clock::to_time_t(date);
    std::tm utc{};
    gmtime_r(&t, &utc);
    std::array<char, 32> buffer{};
    std::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
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
    std::time_t t = timegm(&fields);
    using namespace std::chrono;
    return Clock::from_time_t(t - offsetSeconds) +
           duration_cast<Clock::duration>(duration<double>(fraction));
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

std::optional<std::string> readFile(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string content;
    std::array<char, 65536> chunk{};
    for (;;) {
        ssize_t n = ::read(fd, chunk.data(), chunk.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0) break;
        content.append(chunk.data(), static_cast<std::size_t>(n));
    }
    ::close(fd);
    return content;
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
