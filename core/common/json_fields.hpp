// Reading the fields of a JSON object into values, where the first field that is missing or of
// the wrong form fails the whole object with a sentence that names it.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// How a document writes its dates: the ledger's files as seconds since 2001-01-01 in a number,
// the daemon's scan dump as ISO 8601 text.
enum class JSONDateEncoding { secondsSinceReferenceDate, iso8601 };

// A decoder reads every field it needs, in order, and then asks once whether all of them were
// there. A required field that is missing, and any field of the wrong form, records a failure;
// only the first failure is kept, and from then on each read gives an empty value. Never throws.
//
//   JSONFields fields(value, "\"moveAside\"");
//   op::MoveAside c{fields.string("path"), fields.string("to"),
//                   static_cast<std::uint32_t>(fields.wholeNumber("chownTo", 0, UINT32_MAX))};
//   if (!fields) return fields.error();  // "No value for \"to\" in \"moveAside\"."
//
// Numbers are read by value: 5, 5.0 and 5e0 are the same whole number. An optional field that is
// absent or null holds none and fails nothing; present with the wrong form, it fails like any other.
template <typename Json>
class BasicJSONFields {
public:
    // `context` names the object inside a sentence: "\"removePath\"", "item 3", "an item". A value
    // that is not an object fails at once: "Item 3 must be a JSON object." The reader keeps a
    // reference: `object` must outlive it.
    BasicJSONFields(const Json& object, std::string context);

    explicit operator bool() const { return error_.empty(); }
    // The sentence of the first failure; empty while there is none.
    const std::string& error() const { return error_; }

    std::string string(std::string_view key);
    bool boolean(std::string_view key);
    double number(std::string_view key);  // any JSON number
    std::int64_t wholeNumber(std::string_view key, std::int64_t min, std::int64_t max);
    // A byte count of a record: a whole number from -1 (unknown) to kMaxByteCount.
    std::int64_t byteCount(std::string_view key);
    // An object whose every value is a byte count (bytes per category).
    std::map<std::string, std::int64_t> byteCounts(std::string_view key);
    // A moment of the years 1 to 9999.
    TimePoint date(std::string_view key, JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);
    std::vector<std::string> strings(std::string_view key);
    // A raw string of a closed enumeration, compared exactly.
    template <typename E>
    E raw(std::string_view key);
    // The value itself, for a decoder of its own (an array of records); null when missing.
    const Json* value(std::string_view key);

    std::optional<std::string> optionalString(std::string_view key);
    std::optional<bool> optionalBoolean(std::string_view key);
    std::optional<double> optionalNumber(std::string_view key);
    std::optional<std::int64_t> optionalWholeNumber(std::string_view key, std::int64_t min, std::int64_t max);
    std::optional<TimePoint> optionalDate(std::string_view key,
                                          JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);

    // Records a failure found by the decoder itself, unless one is already recorded:
    // fail("items", "must be an array") says "\"items\" in the scan dump must be an array."
    void fail(std::string_view key, std::string_view requirement);
    // The same with a whole sentence, such as the error of a nested decoder.
    void fail(std::string sentence);

private:
    // The value of a field that is to be read: null after a failure, and for an absent key (a
    // failure too when the field is required).
    const Json* find(std::string_view key, bool required);
    const Json* findOptional(std::string_view key);
    // None for an absent or null field, and when `read` fails.
    template <typename Read>
    auto readOptional(std::string_view key, Read read) -> std::optional<decltype(read())>;

    const Json& object_;
    std::string context_;
    std::string error_;
};

using JSONFields = BasicJSONFields<nlohmann::json>;
using OrderedJSONFields = BasicJSONFields<nlohmann::ordered_json>;

template <typename Json>
template <typename E>
E BasicJSONFields<Json>::raw(std::string_view key) {
    const Json* value = find(key, true);
    if (!value) return E{};
    if (value->is_string())
        if (auto known = fromRawValue<E>(value->template get_ref<const std::string&>())) return *known;
    if constexpr (HasRawValueTable<E>)
        fail(key, "must be one of " + quotedRawValues<E>());
    else
        fail(key, "must be one of its known values");
    return E{};
}

extern template class BasicJSONFields<nlohmann::json>;
extern template class BasicJSONFields<nlohmann::ordered_json>;

}  // namespace orvane
