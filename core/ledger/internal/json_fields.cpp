#include "core/ledger/internal/json_fields.hpp"

#include "core/common/json_files.hpp"

namespace orvane::ledger::internal {
namespace {

const nlohmann::json* member(const nlohmann::json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

}  // namespace

std::optional<std::string> stringField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> boolField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

std::optional<double> doubleField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || !value->is_number()) return std::nullopt;
    return value->get<double>();
}

std::optional<std::int64_t> byteCountField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value) return std::nullopt;
    return jsonByteCount(*value);
}

std::optional<TimePoint> dateField(const nlohmann::json& object, const char* key) {
    auto seconds = doubleField(object, key);
    if (!seconds) return std::nullopt;
    return dateFromReferenceSeconds(*seconds);
}

std::optional<std::vector<std::string>> stringsField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || !value->is_array()) return std::nullopt;
    std::vector<std::string> strings;
    strings.reserve(value->size());
    for (const auto& element : *value) {
        if (!element.is_string()) return std::nullopt;
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

OptionalField<bool> optionalBoolField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || value->is_null()) return {};
    if (!value->is_boolean()) return {false, std::nullopt};
    return {true, value->get<bool>()};
}

OptionalField<double> optionalDoubleField(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || value->is_null()) return {};
    if (!value->is_number()) return {false, std::nullopt};
    return {true, value->get<double>()};
}

OptionalField<std::int64_t> optionalInt64Field(const nlohmann::json& object, const char* key) {
    auto* value = member(object, key);
    if (!value || value->is_null()) return {};
    auto n = jsonWholeNumber(*value);
    if (!n) return {false, std::nullopt};
    return {true, *n};
}

}  // namespace orvane::ledger::internal
