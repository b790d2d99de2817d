#include "core/ledger/move_record.hpp"

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"

namespace orvane {

nlohmann::ordered_json JSONCoding<MoveRecord>::encode(const MoveRecord& record) {
    nlohmann::ordered_json out;
    out["date"] = secondsSinceReferenceDate(record.date);
    out["title"] = record.title;
    out["src"] = record.src;
    out["dst"] = record.dst;
    out["bytes"] = record.bytes;
    out["symlinked"] = record.symlinked;
    if (record.adminScope) out["adminScope"] = *record.adminScope;
    return out;
}

std::optional<MoveRecord> JSONCoding<MoveRecord>::decode(const nlohmann::json& value) {
    JSONFields fields(value, "a move record");
    MoveRecord record{fields.date("date"),      fields.string("title"),   fields.string("src"),
                      fields.string("dst"),     fields.byteCount("bytes"), fields.boolean("symlinked"),
                      fields.optionalBoolean("adminScope")};
    if (!fields) return std::nullopt;
    return record;
}

}  // namespace orvane
