// The list of automatic actions: what the system did by itself, kept in the user defaults.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

inline constexpr std::string_view autoActionLogKey = "autoActionLog";
inline constexpr std::size_t maxAutoActions = 50;

// Appends "2026-01-31T12:00:00Z|text" to the list under "autoActionLog", keeping the newest 50.
// Synchronous on the serial queue `autoActionQ` (label "autoActionLog"). Never throws.
void recordAutoAction(std::string_view text);

// The list as stored, oldest first; empty when absent or not an array of strings.
std::vector<std::string> autoActionLog();

}  // namespace orvane
