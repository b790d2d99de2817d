// When the disk fills at the pace of recent scans: a least-squares line over the whole history,
// and a shorter runway over the last few points.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"
#include "core/scan/scan_snapshot.hpp"

namespace orvane {

struct FillForecast {
    std::int64_t lossPerWeek = 0;  // bytes
    double weeksLeft = 0;
    bool operator==(const FillForecast&) const = default;
};

struct FreePoint {
    TimePoint date;
    std::int64_t free = -1;  // bytes; negative when unknown
    bool operator==(const FreePoint&) const = default;
};

// None unless at least three known points (none dated after `now`) span a week or more and the
// line through them falls.
std::optional<FillForecast> fillForecast(const std::vector<FreePoint>& points, TimePoint now);

// "At this rate (5 GB a week), the disk fills in about 2 months. An estimate from your recent
// scans."; a year or more away it says that free space shrinks slowly instead.
std::optional<std::string> forecastSentence(const std::optional<FillForecast>& forecast);

// The pace of the last six snapshots, in the order given, towards the floor (when `floorOn`) or
// towards a full disk; none when free space did not fall by more than 50 MB a day.
std::optional<std::string> spaceWatchRunway(const std::vector<ScanSnapshot>& trends, std::int64_t floorGB,
                                            bool floorOn);

}  // namespace orvane
