#include "core/cloud/provider_json.hpp"

#include <charconv>
#include <cmath>

namespace orvane {

namespace {

const nlohmann::json* valueAt(const JSONDict& dict, std::string_view key) {
    const auto found = dict.find(std::string(key));
    return found == dict.end() ? nullptr : &found->second;
}

std::optional<std::int64_t> wholeDecimal(std::string_view text) {
    const bool plus = !text.empty() && text.front() == '+';
    if (plus) text.remove_prefix(1);
    // from_chars takes a "-" but not a "+"; neither may stand alone or be followed by another sign.
    const std::string_view digits = !plus && !text.empty() && text.front() == '-' ? text.substr(1) : text;
    if (digits.empty() || digits.front() < '0' || digits.front() > '9') return std::nullopt;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

std::optional<JSONDict> parseJSONDict(std::string_view data) {
    auto parsed = nlohmann::json::parse(data.begin(), data.end(), nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
    return std::move(parsed.get_ref<JSONDict&>());
}

std::optional<std::string> jsonString(const JSONDict& dict, std::string_view key) {
    const auto* value = valueAt(dict, key);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> jsonBool(const JSONDict& dict, std::string_view key) {
    const auto* value = valueAt(dict, key);
    if (!value || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

std::optional<std::int64_t> jsonInt64(const JSONDict& dict, std::string_view key) {
    const auto* value = valueAt(dict, key);
    if (!value) return std::nullopt;
    if (value->is_number_integer() && !value->is_number_unsigned()) return value->get<std::int64_t>();
    if (value->is_number_unsigned()) {
        const auto n = value->get<std::uint64_t>();
        if (n > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(n);
    }
    if (value->is_number_float()) {
        const double n = std::trunc(value->get<double>());
        // 2^63 is the first double past the range; -2^63 itself fits.
        if (!std::isfinite(n) || n >= 9223372036854775808.0 || n < -9223372036854775808.0) return std::nullopt;
        return static_cast<std::int64_t>(n);
    }
    if (value->is_string()) return wholeDecimal(value->get_ref<const std::string&>());
    return std::nullopt;
}

}  // namespace orvane
