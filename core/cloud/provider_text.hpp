// What a provider wrote, made safe to show in the interface and to keep in the ledger: no control
// characters, white space folded, and a bounded length in user-perceived characters.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvane {

// Nothing unless `value` is a text; control characters (DEL too) become blanks before clamping.
std::optional<std::string> sanitizedProviderText(const nlohmann::json& value, int limit);

// Runs of white space become one blank, ends trimmed; nothing when no text is left. Longer than
// `limit` characters: the first max(limit - 1, 1) characters and "…".
std::optional<std::string> sanitizedClamp(std::string_view text, int limit);

}  // namespace orvane
