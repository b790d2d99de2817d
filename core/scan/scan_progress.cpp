#include "core/scan/scan_progress.hpp"

#include <algorithm>
#include <cstdio>

namespace orvane {

std::string_view rawValue(ScanPrivilege privilege) {
    return privilege == ScanPrivilege::standard ? "Standard" : "Administrator";
}

template <>
std::optional<ScanPrivilege> fromRawValue<ScanPrivilege>(std::string_view raw) {
    if (raw == "Standard") return ScanPrivilege::standard;
    if (raw == "Administrator") return ScanPrivilege::administrator;
    return std::nullopt;
}

std::string_view note(ScanPrivilege privilege) {
    return privilege == ScanPrivilege::standard ? "Normal app permissions." : "Measured with macOS administrator access.";
}

std::string_view text(ScanPhase phase) {
    switch (phase) {
        case ScanPhase::cataloguing: return "Cataloguing…";
        case ScanPhase::crossReferencing: return "Cross-referencing…";
        case ScanPhase::sweeping: return "Sweeping what's left…";
        case ScanPhase::dating: return "Reading file dates…";
        case ScanPhase::measuring: return "Measuring sizes…";
        case ScanPhase::finishing: return "Finishing up…";
    }
    return "";
}

double fraction(ScanPhase phase) { return static_cast<double>(static_cast<int>(phase)) / kScanPhaseTotal; }

std::string label(ScanPhase phase) {
    return std::string(text(phase)) + " — " + std::to_string(static_cast<int>(phase)) + " of " +
           std::to_string(kScanPhaseTotal);
}

ScanMetrics::ScanMetrics() : last_(std::chrono::steady_clock::now()) {}

void ScanMetrics::mark(const std::string& name) {
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard guard(lk_);
    marks_.push_back({name, std::chrono::duration<double>(now - last_).count()});
    last_ = now;
}

void ScanMetrics::record(const std::string& name, double seconds) {
    std::lock_guard guard(lk_);
    marks_.push_back({name, seconds});
}

void ScanMetrics::resetClock() {
    std::lock_guard guard(lk_);
    last_ = std::chrono::steady_clock::now();
}

std::vector<ScanMetrics::Mark> ScanMetrics::phases() const {
    std::lock_guard guard(lk_);
    return marks_;
}

std::string ScanMetrics::summary(double minSeconds) const {
    std::vector<Mark> kept;
    for (auto& m : phases())
        if (m.seconds >= minSeconds) kept.push_back(m);
    std::stable_sort(kept.begin(), kept.end(), [](const Mark& a, const Mark& b) { return a.seconds > b.seconds; });
    std::string out;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, " %.1fs", kept[i].seconds);
        if (i) out += ", ";
        out += kept[i].name + seconds;
    }
    return out;
}

}  // namespace orvane
