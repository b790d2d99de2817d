// How persisted JSON looks: dates, the versioned wrapper, and writes that are all or nothing.
#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/common/format.hpp"

namespace orvane {

// Seconds between the Unix epoch and 2001-01-01T00:00:00Z, the reference date of stored dates.
inline constexpr double kReferenceDateOffset = 978'307'200.0;

double secondsSinceReferenceDate(TimePoint date);
TimePoint dateFromReferenceSeconds(double seconds);

// "2026-01-31T12:00:00Z": UTC, whole seconds.
std::string iso8601(TimePoint date);
// Reads the same form; also accepts fractional seconds and a "+hh:mm" offset. Anything else: none.
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

// The whole file, or none when it cannot be read.
std::optional<std::string> readFile(const std::string& path);

// Writes through a temporary file in the same folder, fsync, then rename over the target, so a
// reader sees the old bytes or the new, never a torn file. False when any step failed; the
// temporary file is then removed and the target is as it was.
bool writeFileAtomically(const std::string& path, std::string_view bytes, unsigned mode = 0644);

}  // namespace orvane
