#include "core/common/json_files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
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
    EXPECT_EQ(dateFromReferenceSeconds(std::nan("")), reference);  // never undefined

    EXPECT_EQ(iso8601(Clock::from_time_t(1'769'860'800)), "2026-01-31T12:00:00Z");
    EXPECT_EQ(parseISO8601("2026-01-31T12:00:00Z"), Clock::from_time_t(1'769'860'800));
    EXPECT_EQ(parseISO8601("2026-01-31T14:00:00+02:00"), Clock::from_time_t(1'769'860'800));
    EXPECT_EQ(parseISO8601("2026-01-31T12:00:00.500Z"),
              Clock::from_time_t(1'769'860'800) + std::chrono::milliseconds(500));
    for (const char* bad : {"", "2026-01-31", "2026-01-31T12:00:00", "2026-13-01T00:00:00Z",
                            "2026-01-31T12:00:00Zjunk", "2026-01-31 12:00:00Z", "2026-01-31T12:00:00."})
        EXPECT_FALSE(parseISO8601(bad).has_value()) << bad;
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
