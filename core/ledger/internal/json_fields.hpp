// Reading the fields of the ledger's records, where a missing or mistyped field fails the record.
#pragma once

#include <nlohmann/json.hpp>

#include "core/common/json_files.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"

namespace orvane::ledger::internal {

// Each is none when the key is missing or holds the wrong type.
std::optional<std::string> stringField(const nlohmann::json& object, const char* key);
std::optional<bool> boolField(const nlohmann::json& object, const char* key);
std::optional<double> doubleField(const nlohmann::json& object, const char* key);
// From -1 (unknown) to kMaxByteCount: a count no disk holds fails the record.
std::optional<std::int64_t> byteCountField(const nlohmann::json& object, const char* key);
// Seconds since 2001-01-01 as a number, within the years 1 to 9999.
std::optional<TimePoint> dateField(const nlohmann::json& object, const char* key);
std::optional<std::vector<std::string>> stringsField(const nlohmann::json& object, const char* key);

// An optional field: absent or null is valid and holds none; a value of the wrong type is not
// valid, which fails the record.
template <typename T>
struct OptionalField {
    bool valid = true;
    std::optional<T> value;
};
OptionalField<bool> optionalBoolField(const nlohmann::json& object, const char* key);
OptionalField<double> optionalDoubleField(const nlohmann::json& object, const char* key);
OptionalField<std::int64_t> optionalInt64Field(const nlohmann::json& object, const char* key);

}  // namespace orvane::ledger::internal
