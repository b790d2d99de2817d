// MoveRecord: one relocation of an item to another drive, as the ledger keeps it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/common/format.hpp"
#include "core/ledger/versioned_payload.hpp"

namespace orvane {

// Two records are the same move when their `dst` are equal; `id()` is that identity.
struct MoveRecord {
    TimePoint date;      // when the move finished
    std::string title;   // what the user calls it
    std::string src;     // the path the data left
    std::string dst;     // the path on the destination
    std::int64_t bytes = 0;
    bool symlinked = false;              // a shortcut to `dst` stands at `src`
    std::optional<bool> adminScope;      // made with administrator rights; absent in older records

    const std::string& id() const { return dst; }
    bool operator==(const MoveRecord&) const = default;
};

// {"date","title","src","dst","bytes","symlinked","adminScope"}; "adminScope" is left out when
// absent and may be missing (or null) when read. Every other key is required.
template <>
struct JSONCoding<MoveRecord> {
    static nlohmann::ordered_json encode(const MoveRecord& record);
    static std::optional<MoveRecord> decode(const nlohmann::json& value);
};

}  // namespace orvane
