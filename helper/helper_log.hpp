// The daemon's log: one line per request, "[2026-01-31T12:00:00Z] message", mode 0640.
#pragma once

#include <string>
#include <string_view>

#include "core/common/format.hpp"

namespace orvane::helper {

inline constexpr const char* kDefaultLogPath = "/var/log/orvane-helper.log";

// Appends one record, its control characters escaped so that it stays one line. Never throws and
// never fails its caller: a log that cannot be written is simply not written. The mode is put back
// to 0640 after every record.
void appendLogRecord(const std::string& logPath, std::string_view message, TimePoint now = Clock::now());

}  // namespace orvane::helper
