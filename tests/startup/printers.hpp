// Readable failures for the startup records: what GoogleTest prints when two of them differ.
#pragma once

#include <ostream>
#include <string>

#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

inline void PrintTo(const StartupOwner& owner, std::ostream* os) { *os << toJSON(owner).dump(); }
inline void PrintTo(const LaunchdServiceRow& row, std::ostream* os) {
    *os << (row.pid ? std::to_string(*row.pid) : "-") << " " << row.label;
}
inline void PrintTo(const EmbeddedBackgroundItem& item, std::ostream* os) {
    *os << rawValue(item.kind) << ":" << item.label << " " << item.path << " " << item.program.value_or("-");
}

}  // namespace orvane
