#include "core/common/json_fields.hpp"

#include <gtest/gtest.h>

#include <functional>

#include "core/common/json_files.hpp"

namespace orvane {

enum class Colour { red, green, blue };
template <>
struct RawValues<Colour> {
    static constexpr std::array<std::pair<Colour, std::string_view>, 2> table = {
        {{Colour::red, "Red"}, {Colour::green, "Green"}}};  // blue has no raw value
};

namespace {

using json = nlohmann::json;

std::string shown(const json& value) { return value.dump(); }
std::string shown(TimePoint date) { return iso8601(date); }
template <typename T>
std::string shown(const std::optional<T>& value) {
    return value ? shown(*value) : "none";
}

TEST(JSONFields, EachKindOfField) {
    using Read = std::function<std::string(JSONFields&)>;
    const Read text = [](JSONFields& f) { return shown(f.string("k")); };
    const Read flag = [](JSONFields& f) { return shown(f.boolean("k")); };
    const Read number = [](JSONFields& f) { return shown(f.number("k")); };
    const Read uid = [](JSONFields& f) { return shown(f.wholeNumber("k", 0, UINT32_MAX)); };
    const Read count = [](JSONFields& f) { return shown(f.wholeNumber("k", 0, INT64_MAX)); };
    const Read bytes = [](JSONFields& f) { return shown(f.byteCount("k")); };
    const Read totals = [](JSONFields& f) { return shown(f.byteCounts("k")); };
    const Read seconds = [](JSONFields& f) { return shown(f.date("k")); };
    const Read iso = [](JSONFields& f) { return shown(f.date("k", JSONDateEncoding::iso8601)); };
    const Read list = [](JSONFields& f) { return shown(f.strings("k")); };
    const Read colour = [](JSONFields& f) { return std::string(rawValue(f.raw<Colour>("k"))); };
    const Read maybeFlag = [](JSONFields& f) { return shown(f.optionalBoolean("k")); };
    const Read maybeDate = [](JSONFields& f) { return shown(f.optionalDate("k", JSONDateEncoding::iso8601)); };

    const std::string notBytes = "\"k\" in \"it\" must be a whole number from -1 to 2^60.";
    const std::string notSeconds = "\"k\" in \"it\" must be a number of seconds since 2001 within the years 1 to 9999.";
    const std::string notISO = "\"k\" in \"it\" must be an ISO 8601 date of the years 1 to 9999.";
    struct Case {
        std::optional<json> value;  // under "k"; none: the key is absent
        Read read;
        std::string expected;  // what was read, or the sentence of the failure
    } cases[] = {
        {"a", text, "\"a\""},
        {std::nullopt, text, "No value for \"k\" in \"it\"."},
        {nullptr, text, "\"k\" in \"it\" must be a string."},  // null is no value of a required field
        {1, flag, "\"k\" in \"it\" must be true or false."}, {"1", number, "\"k\" in \"it\" must be a number."},
        {json::parse("5e0"), uid, "5"},  // numbers are read by value
        {5.0, uid, "5"},
        {5.5, uid, "\"k\" in \"it\" must be a whole number from 0 to 4294967295."},
        {9223372036854775808.0, count, "\"k\" in \"it\" must be a whole number not below 0."},
        {-1, bytes, "-1"}, {1152921504606846976, bytes, "1152921504606846976"},
        {1152921504606846977, bytes, notBytes}, {-2, bytes, notBytes},
        {json{{"a", 1}, {"b", -1}}, totals, R"({"a":1,"b":-1})"},
        {json{{"a", 1}, {"b", -2}}, totals, "\"k\" in \"it\" must be an object of whole numbers from -1 to 2^60."},
        {86400, seconds, "2001-01-02T00:00:00Z"},
        {252'423'993'600.0, seconds, notSeconds},  // 10000-01-01
        {"2026-01-31T12:00:00Z", seconds, notSeconds}, {"2026-01-31T14:00:00+02:00", iso, "2026-01-31T12:00:00Z"},
        {1769860800, iso, notISO},
        {json::array({"a", 1}), list, "\"k\" in \"it\" must be an array of strings."},
        {"Green", colour, "Green"},
        {"green", colour, "\"k\" in \"it\" must be one of \"Red\", \"Green\"."},  // compared exactly
        {"Blue", colour, "\"k\" in \"it\" must be one of \"Red\", \"Green\"."},
        // An optional field: absent or null holds none; a value of the wrong type still fails.
        {std::nullopt, maybeFlag, "none"},
        {nullptr, maybeFlag, "none"}, {false, maybeFlag, "false"},
        {"yes", maybeFlag, "\"k\" in \"it\" must be true or false."}, {"yesterday", maybeDate, notISO},
    };
    for (const auto& c : cases) {
        const json object = c.value ? json{{"k", *c.value}} : json::object();
        JSONFields fields(object, "\"it\"");
        const std::string read = c.read(fields);
        EXPECT_EQ(fields ? read : fields.error(), c.expected) << object.dump();
    }
}

TEST(JSONFields, TheFirstFailureStands) {
    const json object = {{"a", 1}, {"b", true}};
    JSONFields fields(object, "item 3");
    EXPECT_EQ(fields.string("a"), "");
    EXPECT_FALSE(fields.boolean("b"));  // readable, yet not read after a failure
    fields.fail("b", "must be false");
    EXPECT_EQ(fields.error(), "\"a\" in item 3 must be a string.");

    const nlohmann::ordered_json array = nlohmann::ordered_json::array();
    OrderedJSONFields notAnObject(array, "item 3");
    EXPECT_EQ(notAnObject.error(), "Item 3 must be a JSON object.");
}

}  // namespace
}  // namespace orvane
