#include "core/common/json_fields.hpp"

#include <cctype>

#include "core/common/byte_counts.hpp"
#include "core/common/json_files.hpp"

namespace orvane {
namespace {

std::string capitalised(std::string text) {
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

std::string wholeNumberRequirement(std::int64_t min, std::int64_t max) {
    if (min == -1 && max == kMaxByteCount) return "must be a whole number from -1 to 2^60";
    if (max == INT64_MAX) return "must be a whole number not below " + std::to_string(min);
    return "must be a whole number from " + std::to_string(min) + " to " + std::to_string(max);
}

std::string_view dateRequirement(JSONDateEncoding dates) {
    return dates == JSONDateEncoding::iso8601 ? "must be an ISO 8601 date of the years 1 to 9999"
                                              : "must be a number of seconds since 2001 within the years 1 to 9999";
}

template <typename Json>
std::optional<TimePoint> dateOf(const Json& value, JSONDateEncoding dates) {
    if (dates == JSONDateEncoding::iso8601)
        return value.is_string() ? parseISO8601(value.template get_ref<const std::string&>()) : std::nullopt;
    return value.is_number() ? dateFromReferenceSeconds(value.template get<double>()) : std::nullopt;
}

template <typename Json>
std::optional<std::int64_t> wholeNumberOf(const Json& value, std::int64_t min, std::int64_t max) {
    auto n = jsonWholeNumber(value);
    if (!n || *n < min || *n > max) return std::nullopt;
    return n;
}

}  // namespace

template <typename Json>
BasicJSONFields<Json>::BasicJSONFields(const Json& object, std::string context)
    : object_(object), context_(std::move(context)) {
    if (!object_.is_object()) error_ = capitalised(context_) + " must be a JSON object.";
}

template <typename Json>
void BasicJSONFields<Json>::fail(std::string_view key, std::string_view requirement) {
    if (!error_.empty()) return;
    error_ = "\"" + std::string(key) + "\" in " + context_ + " " + std::string(requirement) + ".";
}

template <typename Json>
void BasicJSONFields<Json>::fail(std::string sentence) {
    if (error_.empty()) error_ = std::move(sentence);
}

template <typename Json>
const Json* BasicJSONFields<Json>::find(std::string_view key, bool required) {
    if (!error_.empty()) return nullptr;
    auto it = object_.find(key);
    if (it != object_.end()) return &*it;
    if (required) error_ = "No value for \"" + std::string(key) + "\" in " + context_ + ".";
    return nullptr;
}

template <typename Json>
const Json* BasicJSONFields<Json>::findOptional(std::string_view key) {
    const Json* value = find(key, false);
    return value && !value->is_null() ? value : nullptr;
}

template <typename Json>
const Json* BasicJSONFields<Json>::value(std::string_view key) {
    return find(key, true);
}

template <typename Json>
std::string BasicJSONFields<Json>::string(std::string_view key) {
    const Json* value = find(key, true);
    if (value && value->is_string()) return value->template get<std::string>();
    if (value) fail(key, "must be a string");
    return {};
}

template <typename Json>
bool BasicJSONFields<Json>::boolean(std::string_view key) {
    const Json* value = find(key, true);
    if (value && value->is_boolean()) return value->template get<bool>();
    if (value) fail(key, "must be true or false");
    return false;
}

template <typename Json>
double BasicJSONFields<Json>::number(std::string_view key) {
    const Json* value = find(key, true);
    if (value && value->is_number()) return value->template get<double>();
    if (value) fail(key, "must be a number");
    return 0;
}

template <typename Json>
std::int64_t BasicJSONFields<Json>::wholeNumber(std::string_view key, std::int64_t min, std::int64_t max) {
    const Json* value = find(key, true);
    if (!value) return 0;
    if (auto n = wholeNumberOf(*value, min, max)) return *n;
    fail(key, wholeNumberRequirement(min, max));
    return 0;
}

template <typename Json>
std::int64_t BasicJSONFields<Json>::byteCount(std::string_view key) {
    return wholeNumber(key, -1, kMaxByteCount);
}

template <typename Json>
std::map<std::string, std::int64_t> BasicJSONFields<Json>::byteCounts(std::string_view key) {
    const Json* value = find(key, true);
    if (!value) return {};
    std::map<std::string, std::int64_t> counts;
    if (value->is_object()) {
        for (auto it = value->begin(); it != value->end(); ++it) {
            auto n = jsonByteCount(it.value());
            if (!n) break;
            counts[it.key()] = *n;
        }
        if (counts.size() == value->size()) return counts;
    }
    fail(key, "must be an object of whole numbers from -1 to 2^60");
    return {};
}

template <typename Json>
TimePoint BasicJSONFields<Json>::date(std::string_view key, JSONDateEncoding dates) {
    const Json* value = find(key, true);
    if (!value) return {};
    if (auto date = dateOf(*value, dates)) return *date;
    fail(key, dateRequirement(dates));
    return {};
}

template <typename Json>
std::vector<std::string> BasicJSONFields<Json>::strings(std::string_view key) {
    const Json* value = find(key, true);
    if (!value) return {};
    std::vector<std::string> out;
    if (value->is_array()) {
        out.reserve(value->size());
        for (const auto& element : *value) {
            if (!element.is_string()) break;
            out.push_back(element.template get<std::string>());
        }
        if (out.size() == value->size()) return out;
    }
    fail(key, "must be an array of strings");
    return {};
}

template <typename Json>
template <typename Read>
auto BasicJSONFields<Json>::readOptional(std::string_view key, Read read) -> std::optional<decltype(read())> {
    if (!findOptional(key)) return std::nullopt;
    auto value = read();
    if (!error_.empty()) return std::nullopt;
    return value;
}

template <typename Json>
std::optional<std::string> BasicJSONFields<Json>::optionalString(std::string_view key) {
    return readOptional(key, [&] { return string(key); });
}

template <typename Json>
std::optional<bool> BasicJSONFields<Json>::optionalBoolean(std::string_view key) {
    return readOptional(key, [&] { return boolean(key); });
}

template <typename Json>
std::optional<double> BasicJSONFields<Json>::optionalNumber(std::string_view key) {
    return readOptional(key, [&] { return number(key); });
}

template <typename Json>
std::optional<std::int64_t> BasicJSONFields<Json>::optionalWholeNumber(std::string_view key, std::int64_t min,
                                                                       std::int64_t max) {
    return readOptional(key, [&] { return wholeNumber(key, min, max); });
}

template <typename Json>
std::optional<TimePoint> BasicJSONFields<Json>::optionalDate(std::string_view key, JSONDateEncoding dates) {
    return readOptional(key, [&] { return date(key, dates); });
}

template class BasicJSONFields<nlohmann::json>;
template class BasicJSONFields<nlohmann::ordered_json>;

}  // namespace orvane
