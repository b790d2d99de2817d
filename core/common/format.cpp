#include "core/common/format.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace orvane {
namespace {

// Groups the integer part of a plain decimal text in threes.
std::string groupThousands(std::string_view digits) {
    auto dot = digits.find('.');
    std::string_view whole = digits.substr(0, dot);
    std::string out;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        if (i > 0 && (whole.size() - i) % 3 == 0) out += ',';
        out += whole[i];
    }
    if (dot != std::string_view::npos) out += digits.substr(dot);
    return out;
}

// At most `maxFraction` digits, rounded as printf rounds the binary value, trailing zeros dropped.
std::string decimal(double value, int maxFraction) {
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.*f", maxFraction, value);
    std::string text(buffer.data());
    if (text.find('.') != std::string::npos) {
        while (text.back() == '0') text.pop_back();
        if (text.back() == '.') text.pop_back();
    }
    return groupThousands(text);
}

// The broken-down local time of a date; the day is right for any year the clock holds.
std::tm localFields(TimePoint date) {
    std::time_t t = Clock::to_time_t(date);
    std::tm local{};
    localtime_r(&t, &local);
    return local;
}

}  // namespace

Clock::time_point Clock::now() noexcept {
    return time_point(std::chrono::floor<duration>(std::chrono::system_clock::now().time_since_epoch()));
}

std::time_t Clock::to_time_t(const time_point& date) noexcept {
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count());
}

Clock::time_point Clock::from_time_t(std::time_t seconds) noexcept {
    const auto clamped = std::clamp<std::int64_t>(seconds, kEarliestDateUnixSeconds, kDateEndUnixSeconds - 1);
    return time_point(std::chrono::seconds(clamped));
}

std::string fmtBytes(std::int64_t bytes) {
    if (bytes < 0) return "…";
    if (bytes == 0) return "Zero KB";
    if (bytes == 1) return "1 byte";
    if (bytes < 1000) return std::to_string(bytes) + " bytes";

    struct Unit {
        const char* name;
        double size;
        int fraction;
    };
    static constexpr std::array<Unit, 6> units{{{"KB", 1e3, 0},
                                                 {"MB", 1e6, 1},
                                                 {"GB", 1e9, 2},
                                                 {"TB", 1e12, 2},
                                                 {"PB", 1e15, 2},
                                                 {"EB", 1e18, 2}}};
    const auto value = static_cast<double>(bytes);
    std::size_t pick = 0;
    // The unit is chosen by the count, before rounding: 999,999 bytes stay "1,000 KB".
    while (pick + 1 < units.size() && value >= units[pick + 1].size) ++pick;
    const Unit& unit = units[pick];
    return decimal(value / unit.size, unit.fraction) + " " + unit.name;
}

std::string fmtDate(TimePoint date) {
    const std::tm local = localFields(date);
    // The year counted from 1900 is negative before 1900; the two digits are the calendar year's.
    const long year = static_cast<long>(local.tm_year) + 1900;
    std::array<char, 32> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%d/%d/%02ld", local.tm_mon + 1, local.tm_mday,
                  ((year % 100) + 100) % 100);
    return buffer.data();
}

std::string fmtMediumDate(TimePoint date) {
    static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm local = localFields(date);
    return std::string(months[local.tm_mon]) + " " + std::to_string(local.tm_mday) + ", " +
           std::to_string(static_cast<long>(local.tm_year) + 1900);
}

std::string fmtMediumDateShortTime(TimePoint date) {
    const std::tm local = localFields(date);
    const int hour = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
    std::array<char, 16> time{};
    std::snprintf(time.data(), time.size(), "%d:%02d %s", hour, local.tm_min, local.tm_hour < 12 ? "AM" : "PM");
    return fmtMediumDate(date) + " at " + time.data();
}

std::string fmtAgo(TimePoint date, TimePoint now) {
    using std::chrono::duration_cast;
    using std::chrono::seconds;
    const auto delta = duration_cast<seconds>(date - now).count();
    const bool future = delta > 0;
    const long long magnitude = std::llabs(delta);

    struct Step {
        const char* name;
        long long seconds;
    };
    // Calendar months and years as the relative formatter counts them on average.
    static constexpr std::array<Step, 7> steps{{{"year", 31'556'952},
                                                 {"month", 2'629'746},
                                                 {"week", 604'800},
                                                 {"day", 86'400},
                                                 {"hour", 3'600},
                                                 {"minute", 60},
                                                 {"second", 1}}};
    const Step* step = &steps.back();
    for (const auto& candidate : steps) {
        if (magnitude >= candidate.seconds) {
            step = &candidate;
            break;
        }
    }
    const long long count = magnitude / step->seconds;
    std::string amount = std::to_string(count) + " " + step->name + (count == 1 ? "" : "s");
    return future || delta == 0 ? "in " + amount : amount + " ago";
}

std::string counted(std::int64_t count, std::string_view one, std::string_view many) {
    std::string word(count == 1 ? one : (many.empty() ? std::string(one) + "s" : std::string(many)));
    return std::to_string(count) + " " + word;
}

}  // namespace orvane
