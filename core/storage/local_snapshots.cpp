#include "core/storage/local_snapshots.hpp"

#include <algorithm>
#include <ctime>

#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::string_view kSnapshotPrefix = "com.apple.TimeMachine.";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int number(std::string_view digits) {
    int value = 0;
    for (char c : digits) value = value * 10 + (c - '0');
    return value;
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// "yyyy-MM-dd-HHmmss" as a local wall-clock time, refused unless every field is in its range,
// as a strict date formatter refuses it.
std::optional<TimePoint> parseSnapshotDate(std::string_view text) {
    if (!isTMUtilSnapshotDate(text)) return std::nullopt;
    std::tm local{};
    const int year = number(text.substr(0, 4));
    const int month = number(text.substr(5, 2));
    const int day = number(text.substr(8, 2));
    const int hour = number(text.substr(11, 2));
    const int minute = number(text.substr(13, 2));
    const int second = number(text.substr(15, 2));
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1 || month < 1 || month > 12 || day < 1) return std::nullopt;
    const int daysInMonth = kDays[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
    if (day > daysInMonth || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&local);
    if (seconds == static_cast<std::time_t>(-1)) return std::nullopt;
    return Clock::from_time_t(seconds);
}

}  // namespace

bool isTMUtilSnapshotDate(std::string_view text) {
    if (text.size() != 17) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool dash = i == 4 || i == 7 || i == 10;
        if (dash ? text[i] != '-' : !isDigit(text[i])) return false;
    }
    return true;
}

constexpr std::string_view kDatalessMark = " (dataless)";

std::optional<std::string> snapshotDate(std::string_view line) {
    std::string trimmed = trimWhitespace(line);
    std::string_view rest = trimmed;
    if (!rest.starts_with(kSnapshotPrefix)) return std::nullopt;
    rest.remove_prefix(kSnapshotPrefix.size());
    // tmutil marks a snapshot whose data macOS has let go as " (dataless)"; it still exists and
    // still counts, from High Sierra to Sonoma.
    if (rest.ends_with(kDatalessMark)) rest.remove_suffix(kDatalessMark.size());
    if (rest.ends_with(".local")) rest.remove_suffix(6);
    if (!isTMUtilSnapshotDate(rest)) return std::nullopt;
    return std::string(rest);
}

std::vector<std::string> snapshotDates(const std::vector<std::string>& listing) {
    std::vector<std::string> dates;
    for (const auto& line : listing)
        if (auto date = snapshotDate(line)) dates.push_back(std::move(*date));
    return dates;
}

std::string snapshotSummary(const std::vector<std::string>& dates, TimePoint now) {
    if (dates.empty()) return "None on this Mac right now.";
    std::vector<TimePoint> parsed;
    for (const auto& date : dates)
        if (auto moment = parseSnapshotDate(date)) parsed.push_back(*moment);
    std::sort(parsed.begin(), parsed.end());
    std::string text = std::to_string(dates.size()) + " local snapshot" + (dates.size() == 1 ? "" : "s");
    if (parsed.size() == 1) {
        text += ", made " + fmtAgo(parsed.front(), now);
    } else if (parsed.size() > 1) {
        text += ", the oldest made " + fmtAgo(parsed.front(), now) + ", the newest " + fmtAgo(parsed.back(), now);
    }
    return text + ".";
}

std::vector<std::string> localSnapshotDates(const Facts& facts) {
    auto run = facts.run("/usr/bin/tmutil", {"listlocalsnapshots", "/"}, 15, false, ToolErrors::discarded);
    return snapshotDates(run.lines);
}

}  // namespace orvane
