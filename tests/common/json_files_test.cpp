#include "core/common/json_files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <thread>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using orvane::testing::TempDir;

TEST(JSONDates, ReferenceDateAndISO8601) {
    const auto reference = Clock::from_time_t(978'307'200);
    EXPECT_DOUBLE_EQ(secondsSinceReferenceDate(reference), 0.0);
    EXPECT_DOUBLE_EQ(secondsSinceReferenceDate(Clock::from_time_t(978'307'260)), 60.0);
    EXPECT_EQ(dateFromReferenceSeconds(86400.0), Clock::from_time_t(978'393'600));
    EXPECT_FALSE(dateFromReferenceSeconds(std::nan("")));

    EXPECT_EQ(iso8601(Clock::from_time_t(1'769'860'800)), "2026-01-31T12:00:00Z");
    EXPECT_EQ(parseISO8601("2026-01-31T12:00:00Z"), Clock::from_time_t(1'769'860'800));
    EXPECT_EQ(parseISO8601("2026-01-31T14:00:00+02:00"), Clock::from_time_t(1'769'860'800));
    EXPECT_EQ(parseISO8601("2026-01-31T12:00:00.500Z"),
              Clock::from_time_t(1'769'860'800) + std::chrono::milliseconds(500));
    for (const char* bad : {"", "2026-01-31", "2026-01-31T12:00:00", "2026-13-01T00:00:00Z",
                            "2026-01-31T12:00:00Zjunk", "2026-01-31 12:00:00Z", "2026-01-31T12:00:00."})
        EXPECT_FALSE(parseISO8601(bad).has_value()) << bad;
}

TEST(JSONDates, OutsideTheYearsOneTo9999NoDateAndFarDatesKeepTheirYear) {
    struct Case {
        std::optional<double> seconds;   // since 2001, or
        const char* iso;                 // ISO 8601 text
        const char* written;             // what iso8601 writes, or none when decoding fails
    } cases[] = {
        {std::nan(""), nullptr, nullptr},
        {HUGE_VAL, nullptr, nullptr}, {-HUGE_VAL, nullptr, nullptr}, {1e300, nullptr, nullptr},
        {252'423'993'600.0, nullptr, nullptr},                 // 10000-01-01
        {252'423'993'599.0, nullptr, "9999-12-31T23:59:59Z"},  // past the nanosecond clock's 2262
        {9'435'484'800.0, nullptr, "2300-01-01T00:00:00Z"}, {-63'113'904'000.0, nullptr, "0001-01-01T00:00:00Z"},
        {-63'113'904'001.0, nullptr, nullptr}, {std::nullopt, "9999-12-31T23:59:59Z", "9999-12-31T23:59:59Z"},
        {std::nullopt, "2300-01-01T00:00:00.5Z", "2300-01-01T00:00:00Z"},
        {std::nullopt, "9999-12-31T23:59:59-01:00", nullptr},  // 10000 in UTC
        {std::nullopt, "0001-01-01T00:30:00+01:00", nullptr},  // year 0 in UTC
        {std::nullopt, "0000-06-01T00:00:00Z", nullptr},
    };
    for (const auto& c : cases) {
        const auto date = c.seconds ? dateFromReferenceSeconds(*c.seconds) : parseISO8601(c.iso);
        const std::string label = c.iso ? c.iso : std::to_string(*c.seconds);
        ASSERT_EQ(date.has_value(), c.written != nullptr) << label;
        if (date) {
            EXPECT_EQ(iso8601(*date), c.written) << label;
        }
    }
    // A stored date reads back to the microsecond.
    const auto far = *parseISO8601("2300-01-01T00:00:00.25Z");
    EXPECT_EQ(dateFromReferenceSeconds(secondsSinceReferenceDate(far)), far);
}

TEST(ReadFile, OnlyRegularFilesWithinTheBoundAndNeverWaits) {
    TempDir dir;
    const std::string file = dir / "five", fifo = dir / "fifo", link = dir / "link";
    ASSERT_TRUE(writeFileAtomically(file, "12345"));
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // no writer: a blocking open would never return
    fs::create_symlink(file, link);
    struct Case {
        std::string path;
        std::uint64_t bound;
        std::optional<std::string> bytes;
        ReadFailure failure;
    } cases[] = {
        {file, 5, "12345", {}}, {file, 4, std::nullopt, ReadFailure::tooLarge},
        {dir / "missing", 5, std::nullopt, ReadFailure::missing},
        {dir / "five/below", 5, std::nullopt, ReadFailure::missing},
        {dir.path(), 5, std::nullopt, ReadFailure::notRegularFile},
        {fifo, 5, std::nullopt, ReadFailure::notRegularFile},
        {"/dev/zero", 5, std::nullopt, ReadFailure::notRegularFile},
        {link, 5, std::nullopt, ReadFailure::notRegularFile},  // a final link is never followed
        // A regular file whose size says 0 yet holds more: the bound holds while reading.
        {"/proc/self/maps", 16, std::nullopt, ReadFailure::tooLarge},
    };
    for (const auto& c : cases) {
        auto read = readFile(c.path, c.bound);
        EXPECT_EQ(read.bytes, c.bytes) << c.path;
        if (!c.bytes) {
            EXPECT_EQ(read.failure, c.failure) << c.path;
        }
    }
}

TEST(JSONPayload, WrapperAndBareDocuments) {
    nlohmann::ordered_json data = nlohmann::ordered_json::array({1, 2});
    auto wrapped = wrapPayload(data);
    EXPECT_EQ(wrapped.dump(), R"({"v":1,"data":[1,2]})");
    EXPECT_EQ(unwrapPayload(wrapped), data);
    EXPECT_EQ(unwrapPayload(data), data);  // written before the wrapper existed
    EXPECT_EQ(unwrapPayload(nlohmann::ordered_json::parse(R"({"v":99,"data":{"x":1}})")),
              nlohmann::ordered_json::parse(R"({"x":1})"));
    auto foreign = nlohmann::ordered_json::parse(R"({"v":"one","data":3})");
    EXPECT_EQ(unwrapPayload(foreign), foreign);
}

TEST(JSONStrict, RefusesWhatTwoReadersCouldReadDifferently) {
    EXPECT_TRUE(parseJSONStrictly(R"({"a":{"b":1},"c":[{"b":2},{"b":3}]})").value.has_value());
    auto twice = parseJSONStrictly(R"({"a":1,"a":2})");
    EXPECT_FALSE(twice.value);
    EXPECT_EQ(twice.error, "It is not accepted JSON: the key \"a\" appears twice in one object.");
    EXPECT_FALSE(parseJSONStrictly(R"({"a":{"x":1,"x":1}})").value);
    EXPECT_FALSE(parseJSONStrictly(std::string(100000, '[')).value);
    EXPECT_FALSE(parseJSONStrictly("{\"a\":\"\xff\"}").value);
    EXPECT_FALSE(parseJSONStrictly("").value);
    EXPECT_TRUE(parseJSONStrictly(std::string(30, '[') + std::string(30, ']')).value.has_value());
}

TEST(AtomicWrite, AllOrNothing) {
    TempDir dir;
    const std::string file = dir.path() + "/state.json";
    ASSERT_TRUE(writeFileAtomically(file, "first", 0640));
    EXPECT_EQ(readFile(file), "first");
    struct stat st{};
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    ASSERT_TRUE(writeFileAtomically(file, std::string(1 << 20, 'x')));
    EXPECT_EQ(readFile(file)->size(), 1u << 20);

    // Nothing but the target is left behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator{}), 1);
    EXPECT_FALSE(writeFileAtomically(dir.path() + "/missing/state.json", "x"));
    EXPECT_FALSE(readFile(dir.path() + "/missing/state.json"));
}

TEST(AtomicWrite, ReadersNeverSeeATornFile) {
    TempDir dir;
    const std::string file = dir.path() + "/state.json";
    const std::string a(200000, 'a'), b(300000, 'b');
    ASSERT_TRUE(writeFileAtomically(file, a));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; i < 200; ++i) writeFileAtomically(file, i % 2 ? a : b);
        stop = true;
    });
    int torn = 0;
    while (!stop) {
        auto content = readFile(file);
        if (content && *content != a && *content != b) ++torn;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace orvane
