#include "core/ledger/duplicates_watch_hit.hpp"

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"

namespace orvane {

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
    JSONFields fields(value, "a duplicates watch hit");
    DuplicatesWatchHit hit{fields.string("id"),      fields.date("date"),      fields.string("watchedRoot"),
                           fields.string("newPath"), fields.strings("matches"), fields.byteCount("bytes"),
                           fields.boolean("dismissed")};
    if (!fields) return std::nullopt;
    return hit;
}

}  // namespace orvane
