// Readers of the small JSON answers providers send. Each gives nothing rather than failing, since
// a provider's answer is never trusted to have the shape it promised.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvane {

using JSONDict = nlohmann::json::object_t;

// A map only when the top level of `data` is a JSON object.
std::optional<JSONDict> parseJSONDict(std::string_view data);

// The value only when the key holds that very type.
std::optional<std::string> jsonString(const JSONDict& dict, std::string_view key);
std::optional<bool> jsonBool(const JSONDict& dict, std::string_view key);
// A JSON number (a fraction is cut off; true and false are not numbers), or a text that is a whole
// decimal number with an optional sign, since providers write sizes either way. Nothing past the
// 64-bit range.
std::optional<std::int64_t> jsonInt64(const JSONDict& dict, std::string_view key);

}  // namespace orvane
