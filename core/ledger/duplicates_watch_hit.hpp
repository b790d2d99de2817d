// DuplicatesWatchHit: a newly arrived file that the duplicates watch found already on the disk.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"
#include "core/ledger/versioned_payload.hpp"

namespace orvane {

struct DuplicatesWatchHit {
    std::string id;
    TimePoint date;            // when it was found
    std::string watchedRoot;   // the watched folder it turned up in
    std::string newPath;       // the file that arrived
    std::vector<std::string> matches;  // the paths it duplicates
    std::int64_t bytes = 0;
    bool dismissed = false;    // the user waved it away

    // "photo.jpg now has 3 copies" when there are matches (two matches: three copies in all);
    // the bare file name when there are none. Derived, never stored.
    std::string title() const;
    bool operator==(const DuplicatesWatchHit&) const = default;
};

// {"id","date","watchedRoot","newPath","matches","bytes","dismissed"}, all required.
template <>
struct JSONCoding<DuplicatesWatchHit> {
    static nlohmann::ordered_json encode(const DuplicatesWatchHit& hit);
    static std::optional<DuplicatesWatchHit> decode(const nlohmann::json& value);
};

}  // namespace orvane
