#include "core/storage/storage_confidence.hpp"

namespace orvane {

std::string_view meaning(StorageConfidence confidence) {
    switch (confidence) {
        case StorageConfidence::measured:
            return "Read directly from the system — this figure is exact.";
        case StorageConfidence::estimated:
            return "Derived, not read. Treat it as an approximation.";
        case StorageConfidence::permissionLimited:
            return "macOS hides part of this from apps — the real figure is at least this much.";
        case StorageConfidence::notMeasured:
            return "This app CAN measure this — it just hasn't yet. Run it from the page linked here.";
        case StorageConfidence::unavailable:
            return "No API on macOS reports this. Shown so you know it exists, not as a number to trust.";
    }
    return {};
}

}  // namespace orvane
