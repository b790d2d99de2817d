#include "core/monitoring/fill_forecast.hpp"

#include <algorithm>
#include <cmath>

#include "core/common/byte_counts.hpp"

namespace orvane {
namespace {

constexpr double kSecondsPerDay = 86'400;

double secondsBetween(TimePoint from, TimePoint to) {
    return std::chrono::duration<double>(to - from).count();
}

// A figure of bytes for a sentence, kept within what the formatter and a record can hold.
std::int64_t wholeBytes(double bytes) {
    if (!(bytes < static_cast<double>(kMaxByteCount))) return kMaxByteCount;
    return static_cast<std::int64_t>(bytes);
}

}  // namespace

std::optional<FillForecast> fillForecast(const std::vector<FreePoint>& points, TimePoint now) {
    std::vector<FreePoint> kept;
    for (const auto& point : points)
        if (point.free >= 0 && point.date <= now) kept.push_back(point);
    std::stable_sort(kept.begin(), kept.end(), [](const FreePoint& a, const FreePoint& b) { return a.date < b.date; });
    if (kept.size() < 3) return std::nullopt;
    const TimePoint oldest = kept.front().date;
    if (secondsBetween(oldest, kept.back().date) < 604'800) return std::nullopt;

    const auto count = static_cast<double>(kept.size());
    double meanX = 0, meanY = 0;
    for (const auto& point : kept) {
        meanX += secondsBetween(oldest, point.date) / kSecondsPerDay;
        meanY += static_cast<double>(point.free);
    }
    meanX /= count;
    meanY /= count;
    double sxx = 0, sxy = 0;
    for (const auto& point : kept) {
        const double dx = secondsBetween(oldest, point.date) / kSecondsPerDay - meanX;
        sxx += dx * dx;
        sxy += dx * (static_cast<double>(point.free) - meanY);
    }
    if (!(sxx > 0)) return std::nullopt;
    const double slope = sxy / sxx;  // bytes a day
    if (!(slope < 0)) return std::nullopt;
    return FillForecast{wholeBytes(slope * -7), static_cast<double>(kept.back().free) / slope / -7};
}

std::optional<std::string> forecastSentence(const std::optional<FillForecast>& forecast) {
    if (!forecast) return std::nullopt;
    const double w = forecast->weeksLeft;
    const std::string rate = fmtBytes(forecast->lossPerWeek);
    std::string when;
    if (w < 1) {
        when = "within a week";
    } else if (w < 8) {
        const auto weeks = static_cast<std::int64_t>(std::round(w));
        when = "in about " + std::to_string(weeks) + " week" + (weeks == 1 ? "" : "s");
    } else if (w < 52) {
        when = "in about " + std::to_string(static_cast<std::int64_t>(std::round(w / 4.345))) + " months";
    } else {
        return "Free space is shrinking slowly (" + rate + " a week); it won't run out this year at this rate.";
    }
    return "At this rate (" + rate + " a week), the disk fills " + when + ". An estimate from your recent scans.";
}

std::optional<std::string> spaceWatchRunway(const std::vector<ScanSnapshot>& trends, std::int64_t floorGB,
                                            bool floorOn) {
    std::vector<ScanSnapshot> known;
    for (const auto& snapshot : trends)
        if (snapshot.free >= 0) known.push_back(snapshot);
    if (known.size() > 6) known.erase(known.begin(), known.end() - 6);
    if (known.size() < 2) return std::nullopt;
    const ScanSnapshot& first = known.front();
    const ScanSnapshot& last = known.back();
    if (!(last.date > first.date) || !(last.free < first.free)) return std::nullopt;

    const auto drop = static_cast<double>(first.free - last.free);
    const double days = secondsBetween(first.date, last.date) / kSecondsPerDay;
    const double rate = drop / std::max(days, 0.5);
    if (rate <= 50'000'000) return std::nullopt;
    const std::string pace = "At this pace (\u2212" + fmtBytes(wholeBytes(rate)) + "/day)";
    if (floorOn) {
        // In long double, so that no floor typed into the preferences can overflow the product.
        const long double room = static_cast<long double>(last.free) - static_cast<long double>(floorGB) * 1e9L;
        if (!(room > 0)) return std::nullopt;
        return pace + " you'll hit your " + std::to_string(floorGB) + " GB floor in \u2248 " +
               std::to_string(static_cast<std::int64_t>(room / static_cast<long double>(rate))) + " days.";
    }
    return pace + ", this disk fills in \u2248 " +
           std::to_string(static_cast<std::int64_t>(static_cast<double>(last.free) / rate)) + " days.";
}

}  // namespace orvane
