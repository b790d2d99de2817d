// Time Machine's local snapshots as `tmutil listlocalsnapshots /` names them, and the sentence
// that sums them up. macOS tells no size for a snapshot, so names and dates are all there is.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/format.hpp"

namespace orvane {

// "yyyy-MM-dd-HHmmss" in shape: four, two and two digits, then six, joined by "-". The digits are
// not checked as a calendar date.
bool isTMUtilSnapshotDate(std::string_view text);

// "com.apple.TimeMachine.2025-07-10-054158.local" gives "2025-07-10-054158" (".local" may be
// missing). Anything else gives none: a heading, and also a name followed by " (dataless)".
std::optional<std::string> snapshotDate(std::string_view line);
// The dates of a listing in its order; every other line is passed over.
std::vector<std::string> snapshotDates(const std::vector<std::string>& listing);

// "None on this Mac right now.", or the count with the snapshots' age relative to `now`:
// "2 local snapshots, the oldest made 3 days ago, the newest 2 hours ago." The dates are local
// wall-clock times; one that is no real time still counts but tells no age.
std::string snapshotSummary(const std::vector<std::string>& dates, TimePoint now);

// The dates of the snapshots on "/" (tmutil, 15 seconds at most); none when tmutil tells none.
std::vector<std::string> localSnapshotDates(const Facts& facts = Facts::real());

}  // namespace orvane
