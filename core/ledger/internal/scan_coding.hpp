// The JSON coding of the scanner's records that the ledger keeps in versioned files.
#pragma once

#include "core/ledger/versioned_payload.hpp"
#include "core/scan/scan_snapshot.hpp"

namespace orvane {

template <>
struct JSONCoding<ScanSnapshot> {
    static nlohmann::ordered_json encode(const ScanSnapshot& snapshot) { return toJSON(snapshot); }
    static std::optional<ScanSnapshot> decode(const nlohmann::json& value) { return scanSnapshotFromJSON(value); }
};

}  // namespace orvane
