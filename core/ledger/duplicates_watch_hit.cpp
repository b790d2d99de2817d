#include "core/ledger/duplicates_watch_hit.hpp"

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/ledger/internal/json_fields.hpp"

namespace orvane {

using namespace ledger::internal;

std::string DuplicatesWatchHit::title() const {
    std::string name = lastPathComponent(newPath);
    if (matches.empty()) return name;
    return name + " now has " + std::to_string(matches.size() + 1) + " copies";
}

nlohmann::ordered_json JSONCoding<DuplicatesWatchHit>::encode(const DuplicatesWatchHit& hit) {
    nlohmann::ordered_json out;
    out["id"] = hit.id;
    out["date"] = secondsSinceReferenceDate(hit.date);
    out["watchedRoot"] = hit.watchedRoot;
    out["newPath"] = hit.newPath;
    out["matches"] = hit.matches;
    out["bytes"] = hit.bytes;
    out["dismissed"] = hit.dismissed;
    return out;
}

std::optional<DuplicatesWatchHit> JSONCoding<DuplicatesWatchHit>::decode(const nlohmann::json& value) {
    auto id = stringField(value, "id");
    auto date = dateField(value, "date");
    auto watchedRoot = stringField(value, "watchedRoot");
    auto newPath = stringField(value, "newPath");
    auto matches = stringsField(value, "matches");
    auto bytes = byteCountField(value, "bytes");
    auto dismissed = boolField(value, "dismissed");
    if (!id || !date || !watchedRoot || !newPath || !matches || !bytes || !dismissed) return std::nullopt;
    return DuplicatesWatchHit{std::move(*id), *date,   std::move(*watchedRoot), std::move(*newPath),
                              std::move(*matches), *bytes, *dismissed};
}

}  // namespace orvane
