// How persisted JSON looks: dates, the versioned wrapper, and writes that are all or nothing.
#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/common/byte_counts.hpp"
#include "core/common/format.hpp"

namespace orvane {

// Seconds between the Unix epoch and 2001-01-01T00:00:00Z, the reference date of stored dates.
inline constexpr double kReferenceDateOffset = 978'307'200.0;

double secondsSinceReferenceDate(TimePoint date);
// None for a count that is not a date of the years 1 to 9999 (NaN and the infinities too), so
// that a damaged record fails to decode rather than turn into a date of another century.
std::optional<TimePoint> dateFromReferenceSeconds(double seconds);

// "2026-01-31T12:00:00Z": UTC, whole seconds, the year in four digits.
std::string iso8601(TimePoint date);
// Reads the same form; also accepts fractional seconds and a "+hh:mm" offset. Anything else, and
// a moment outside the years 1 to 9999 in UTC: none.
std::optional<TimePoint> parseISO8601(std::string_view text);

// Persisted payloads stand in {"v":1,"data":...}.
inline constexpr int kPayloadVersion = 1;
nlohmann::ordered_json wrapPayload(nlohmann::ordered_json data);
// The payload of a wrapped document, or the document itself when it carries no wrapper (a bare
// array written before the wrapper existed). A wrapper of any version is read.
nlohmann::ordered_json unwrapPayload(const nlohmann::ordered_json& document);

// Parses JSON more strictly than the library does by default: a key given twice in one object
// and nesting deeper than `maxDepth` are errors, so that two readers of the same bytes cannot
// disagree on what they say. Never throws.
struct StrictJSON {
    std::optional<nlohmann::json> value;
    std::string error;  // a sentence; empty when parsed
};
StrictJSON parseJSONStrictly(std::string_view text, int maxDepth = 32);

// A JSON number that is a whole number within 64 bits: 5, 5.0 and 5e0 are; 5.5, 2^63 and
// anything not a number are not. Decoders of byte counts and versions share this one rule.
template <typename Json>
std::optional<std::int64_t> jsonWholeNumber(const Json& value) {
    if (value.is_number_unsigned()) {
        auto n = value.template get<std::uint64_t>();
        if (n > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(n);
    }
    if (value.is_number_integer()) return value.template get<std::int64_t>();
    if (value.is_number_float()) {
        double d = value.template get<double>();
        // 2^63 itself does not fit, so the upper bound is exclusive; NaN fails both tests.
        if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0) || std::floor(d) != d) return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

// A byte count of a record: a whole number from -1 (unknown) to kMaxByteCount. A count outside
// makes its record invalid instead of reaching a sum.
template <typename Json>
std::optional<std::int64_t> jsonByteCount(const Json& value) {
    auto n = jsonWholeNumber(value);
    if (!n || *n < -1 || *n > kMaxByteCount) return std::nullopt;
    return n;
}

// Why a file gave no bytes, so that a caller can say so in a sentence.
enum class ReadFailure {
    missing,
    notRegularFile,  // a folder, a device, a FIFO, a socket, or a link (never followed)
    tooLarge,        // above the caller's bound, or grew past it while being read
    unreadable,      // refused, or an error while reading
};
// "does not exist", "is not a regular file", ...: to follow the file's name in a sentence.
std::string_view readFailureClause(ReadFailure failure);

struct FileRead {
    std::optional<std::string> bytes;
    ReadFailure failure = ReadFailure::unreadable;  // why `bytes` is none
};

// The whole of a regular file of at most `maxBytes` bytes. Opened without following a final link
// and without blocking, so that a FIFO or a device in a file's place answers at once instead of
// hanging the command; never reads more than the bound, whatever the file's size says.
FileRead readFile(const std::string& path, std::uint64_t maxBytes);
// The same with a 256 MiB bound, for callers to whom the reason makes no difference.
std::optional<std::string> readFile(const std::string& path);
// At most the first `maxBytes` bytes of a regular file, opened as readFile opens it: for a header
// of a file that may be far larger (an executable's).
FileRead readFileHead(const std::string& path, std::uint64_t maxBytes);

// An open descriptor on a regular file, taken as readFile takes it, for readers of a part of a
// file (the end of a log). Closed with the object.
class RegularFile {
public:
    explicit RegularFile(const std::string& path);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    std::int64_t size() const { return size_; }
    ReadFailure failure() const { return failure_; }  // why it is not open

private:
    int fd_ = -1;
    std::int64_t size_ = 0;
    ReadFailure failure_ = ReadFailure::unreadable;
};

// Writes through a temporary file in the same folder, fsync, then rename over the target, so a
// reader sees the old bytes or the new, never a torn file. False when any step failed; the
// temporary file is then removed and the target is as it was.
bool writeFileAtomically(const std::string& path, std::string_view bytes, unsigned mode = 0644);

}  // namespace orvane
