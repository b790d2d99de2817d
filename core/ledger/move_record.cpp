#include "core/ledger/move_record.hpp"

#include "core/common/json_files.hpp"
#include "core/ledger/internal/json_fields.hpp"

namespace orvane {

using namespace ledger::internal;

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
    auto date = dateField(value, "date");
    auto title = stringField(value, "title");
    auto src = stringField(value, "src");
    auto dst = stringField(value, "dst");
    auto bytes = byteCountField(value, "bytes");
    auto symlinked = boolField(value, "symlinked");
    auto adminScope = optionalBoolField(value, "adminScope");
    if (!date || !title || !src || !dst || !bytes || !symlinked || !adminScope.valid) return std::nullopt;
    return MoveRecord{*date, std::move(*title), std::move(*src), std::move(*dst), *bytes, *symlinked, adminScope.value};
}

}  // namespace orvane
