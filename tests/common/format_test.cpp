#include "core/common/format.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>

namespace orvane {
namespace {

TEST(FmtBytes, PrintsWhatThePlatformFormatterPrints) {
    struct Case {
        std::int64_t bytes;
        const char* text;
    } cases[] = {
        {0, "Zero KB"}, {1, "1 byte"}, {2, "2 bytes"}, {999, "999 bytes"}, {1000, "1 KB"}, {1023, "1 KB"},
        {1499, "1 KB"}, {1501, "2 KB"},
        {2500, "2 KB"},  // an exact tie rounds to even
        {11999, "12 KB"}, {900000, "900 KB"}, {999499, "999 KB"},
        {999999, "1,000 KB"},  // the unit is chosen before rounding
        {1000000, "1 MB"}, {1500000, "1.5 MB"}, {12345678, "12.3 MB"}, {123456789, "123.5 MB"},
        {999900000, "999.9 MB"}, {999999999, "1,000 MB"}, {1000000000, "1 GB"}, {1234567898, "1.23 GB"},
        {2340000000, "2.34 GB"}, {2300000000, "2.3 GB"}, {12345678987, "12.35 GB"}, {5500000000000, "5.5 TB"},
        {123456789012345, "123.46 TB"}, {1000000000000000, "1 PB"}, {INT64_MAX, "9.22 EB"}, {-1, "…"},
        {INT64_MIN, "…"},
    };
    for (const auto& c : cases) EXPECT_EQ(fmtBytes(c.bytes), c.text) << c.bytes;
}

TEST(FmtAgo, CountsTheLargestWholeUnit) {
    const auto now = Clock::from_time_t(1'800'000'000);
    using std::chrono::seconds;
    struct Case {
        long long offset;
        const char* text;
    } cases[] = {
        {0, "in 0 seconds"}, {-1, "1 second ago"}, {-59, "59 seconds ago"}, {-60, "1 minute ago"},
        {-3599, "59 minutes ago"}, {-7200, "2 hours ago"}, {-86400, "1 day ago"}, {-6 * 86400, "6 days ago"},
        {-7 * 86400, "1 week ago"}, {-40 * 86400, "1 month ago"}, {-400 * 86400, "1 year ago"},
        {3 * 86400, "in 3 days"}, {90, "in 1 minute"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(fmtAgo(now + seconds(c.offset), now), c.text) << c.offset;
}

TEST(FmtDate, ShortFormInLocalTime) {
    const char* saved = std::getenv("TZ");
    std::string previous = saved ? saved : "";
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(fmtDate(Clock::from_time_t(1'769'860'800)), "1/31/26");  // 2026-01-31T12:00:00Z
    EXPECT_EQ(fmtDate(Clock::from_time_t(978'307'200)), "1/1/01");
    // Far dates keep their year: nanoseconds since 1970 would have wrapped them to 1677.
    EXPECT_EQ(fmtDate(Clock::from_time_t(253'402'300'799)), "12/31/99");
    EXPECT_EQ(fmtMediumDate(Clock::from_time_t(253'402'300'799)), "Dec 31, 9999");
    EXPECT_EQ(fmtMediumDate(Clock::from_time_t(10'413'792'000)), "Jan 1, 2300");
    EXPECT_EQ(fmtDate(Clock::from_time_t(-62'135'596'800)), "1/1/01");
    EXPECT_EQ(fmtMediumDate(Clock::from_time_t(-62'135'596'800)), "Jan 1, 1");
    setenv("TZ", "America/Los_Angeles", 1);
    tzset();
    EXPECT_EQ(fmtDate(Clock::from_time_t(978'307'200)), "12/31/00");
    if (saved) setenv("TZ", previous.c_str(), 1);
    else unsetenv("TZ");
    tzset();
}

}  // namespace
}  // namespace orvane
