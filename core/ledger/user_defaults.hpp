// The user defaults: the small per-user key-value store that the platform keeps on macOS.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// Here the store is the JSON object of "user-defaults.json" in the ledger's folder, so that it
// follows the ledger's test override and goes with the ledger when that is wiped.
std::string userDefaultsPath();

// The value under `key`; none when absent, or when the file is missing or not a JSON object.
std::optional<nlohmann::json> userDefault(std::string_view key);

// Sets `key` and writes the file atomically; a failed write is ignored, and nothing is written
// once the ledger is retired. Safe to call from several threads.
void setUserDefault(std::string_view key, const nlohmann::json& value);

}  // namespace orvane
