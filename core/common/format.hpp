// Figures and dates as the user reads them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace orvane {

using Clock = std::chrono::system_clock;
using TimePoint = Clock::time_point;

// The platform's byte-count formatter in its file style: decimal units (1 KB = 1,000 bytes),
// no fraction digits for bytes and KB, at most one for MB and two from GB up, trailing zeros
// dropped, thousands grouped with ",". "Zero KB" for 0, "1 byte", "N bytes" below 1,000,
// and "…" for a negative count, which only ever means "unknown".
std::string fmtBytes(std::int64_t bytes);

// The short date form in the local time zone: "1/31/26".
std::string fmtDate(TimePoint date);

// The medium date form in the local time zone: "Jan 31, 2026".
std::string fmtMediumDate(TimePoint date);

// A relative date against `now`: "5 minutes ago", "in 2 days", "1 year ago".
std::string fmtAgo(TimePoint date, TimePoint now = Clock::now());

}  // namespace orvane
