// Figures and dates as the user reads them.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace orvane {

// The system clock counted in microseconds. Dates also come from files and tools, and every year
// up to 9999 must be exact: the system clock's own nanoseconds end in 2262 and wrap to 1677.
struct Clock {
    using duration = std::chrono::microseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<Clock, duration>;
    static constexpr bool is_steady = false;

    static time_point now() noexcept;
    // Whole seconds, rounded towards the past, so a date before 1970 keeps its day.
    static std::time_t to_time_t(const time_point& date) noexcept;
    // Clamped to the years 1 to 9999, so that no count of seconds can overflow.
    static time_point from_time_t(std::time_t seconds) noexcept;
};
using TimePoint = Clock::time_point;

// The span of dates a record may hold: years 1 to 9999 of the Gregorian calendar in UTC, the years
// that ISO 8601 writes in four digits.
inline constexpr std::int64_t kEarliestDateUnixSeconds = -62'135'596'800;  // 0001-01-01T00:00:00Z
inline constexpr std::int64_t kDateEndUnixSeconds = 253'402'300'800;      // 10000-01-01T00:00:00Z, excluded

// The platform's byte-count formatter in its file style: decimal units (1 KB = 1,000 bytes),
// no fraction digits for bytes and KB, at most one for MB and two from GB up, trailing zeros
// dropped, thousands grouped with ",". "Zero KB" for 0, "1 byte", "N bytes" below 1,000,
// and "…" for a negative count, which only ever means "unknown".
std::string fmtBytes(std::int64_t bytes);

// The short date form in the local time zone: "1/31/26".
std::string fmtDate(TimePoint date);

// The medium date form in the local time zone: "Jan 31, 2026".
std::string fmtMediumDate(TimePoint date);
// The medium date with the short time in the local time zone: "Jan 31, 2026 at 3:04 PM".
std::string fmtMediumDateShortTime(TimePoint date);

// A relative date against `now`: "5 minutes ago", "in 2 days", "1 year ago".
std::string fmtAgo(TimePoint date, TimePoint now = Clock::now());

// "1 file", "2 files"; `many` when the plural is not the word and an "s".
std::string counted(std::int64_t count, std::string_view one, std::string_view many = {});

}  // namespace orvane
