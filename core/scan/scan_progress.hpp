// How a scan reports itself: with what rights it ran, which of the six steps it is in, and how
// long each part took.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/raw_value.hpp"

namespace orvane {

enum class ScanPrivilege { standard, administrator };
std::string_view rawValue(ScanPrivilege privilege);  // "Standard", "Administrator"
template <>
std::optional<ScanPrivilege> fromRawValue<ScanPrivilege>(std::string_view raw);
std::string_view note(ScanPrivilege privilege);

// The six steps of a full scan as the user sees them; raw values 1 to 6.
enum class ScanPhase { cataloguing = 1, crossReferencing, sweeping, dating, measuring, finishing };
inline constexpr int kScanPhaseTotal = 6;
inline constexpr ScanPhase allScanPhases[] = {ScanPhase::cataloguing, ScanPhase::crossReferencing,
                                              ScanPhase::sweeping,    ScanPhase::dating,
                                              ScanPhase::measuring,   ScanPhase::finishing};
std::string_view text(ScanPhase phase);  // "Cataloguing…"
double fraction(ScanPhase phase);        // raw value / 6
std::string label(ScanPhase phase);      // "Cataloguing… — 1 of 6"

// Timings of a scan's parts. Safe from several threads.
class ScanMetrics {
public:
    struct Mark {
        std::string name;
        double seconds = 0;
        bool operator==(const Mark&) const = default;
    };

    ScanMetrics();
    // Records the time since the last mark (or creation, or resetClock) under `name`.
    void mark(const std::string& name);
    void record(const std::string& name, double seconds);
    void resetClock();
    std::vector<Mark> phases() const;
    // "name 1.2s, other 0.5s": the marks of at least `minSeconds`, longest first.
    std::string summary(double minSeconds) const;

private:
    mutable std::mutex lk_;
    std::vector<Mark> marks_;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace orvane
