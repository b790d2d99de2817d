// SpaceItem, the record every scan finding becomes, with its vocabularies, JSON and categories.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"
#include "core/common/json_fields.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// How safe it is to remove an item.
enum class Safety { safe, caution, review };

// What the system proposes for an item.
enum class Suggested { delete_, move, review };  // `delete` is a keyword: the case is delete_

// The kind of a clean-up opportunity; no raw values.
enum class OppKind { move, delete_, review, file, dedupe, evict, compact };

template <>
struct RawValues<Safety> {
    static constexpr std::array<std::pair<Safety, std::string_view>, 3> table = {
        {{Safety::safe, "Safe"}, {Safety::caution, "Caution"}, {Safety::review, "Review"}}};
};
template <>
struct RawValues<Suggested> {
    static constexpr std::array<std::pair<Suggested, std::string_view>, 3> table = {
        {{Suggested::delete_, "Delete"}, {Suggested::move, "Move to external"}, {Suggested::review, "Review first"}}};
};

// The display text of a safety level, looked up with L() and falling back to the English text.
std::string displayName(Safety safety);

// One finding. An `id` that begins with "/" is a real path and nests with other paths; any other
// `id` is a pseudo-group whose truth lies in the member paths of `extra`. Keyed collections of
// items are keyed by `id`. Fields stand in the order of the JSON form; the defaults are the
// conservative ones, so a finding nobody classified is only ever offered for review.
struct SpaceItem {
    std::string id;
    std::string title;
    std::string category;  // one of the cat* texts, compared whole, byte for byte
    Safety safety = Safety::review;
    Suggested suggested = Suggested::review;
    std::string note;
    bool contentsOnly = false;  // the action empties `id` rather than removing it (a Trash)
    std::vector<std::string> extra;
    bool isDir = false;
    std::int64_t sizeBytes = 0;  // zero or negative when a measurement failed
    std::optional<TimePoint> lastUsed;

    // The item's place on disk; there is no other path field.
    const std::string& path() const { return id; }

    bool operator==(const SpaceItem&) const = default;
};

// {"id","title","category","safety","suggested","note","contentsOnly","extra","isDir",
//  "sizeBytes","lastUsed"} in that order; "lastUsed" is left out when absent.
nlohmann::ordered_json toJSON(const SpaceItem& item,
                              JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);
nlohmann::ordered_json toJSON(const std::vector<SpaceItem>& items,
                              JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);

// Decoding never throws. Every key but "lastUsed" is required ("lastUsed": null counts as
// absent); a missing or wrongly typed key, or an unknown safety or suggestion, fails the value
// with a sentence that names it ("No value for \"id\" in an item."). Unknown keys are ignored.
// "sizeBytes" is a byte count; a date must lie in the years 1 to 9999.
struct SpaceItemDecoding {
    std::optional<SpaceItem> item;
    std::string error;  // a sentence; empty when decoded
};
SpaceItemDecoding decodeSpaceItem(
    const nlohmann::json& value,
    JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);
SpaceItemDecoding decodeSpaceItem(
    const nlohmann::ordered_json& value,
    JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);

// An array of items decodes whole or not at all: one bad item fails the enclosing document.
struct SpaceItemsDecoding {
    std::optional<std::vector<SpaceItem>> items;
    std::string error;  // names the first bad item by its position: "... in item 3."; empty when decoded
};
SpaceItemsDecoding decodeSpaceItems(
    const nlohmann::json& value,
    JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);
SpaceItemsDecoding decodeSpaceItems(
    const nlohmann::ordered_json& value,
    JSONDateEncoding dates = JSONDateEncoding::secondsSinceReferenceDate);

// Category texts. They are persisted and compared exactly, so they are part of the data format
// and never localised.
inline constexpr std::string_view catBig = "Largest files";
inline constexpr std::string_view catAI = "AI models & caches";
inline constexpr std::string_view catDev = "Developer caches (rebuild themselves)";
inline constexpr std::string_view catEnv = "Build environments (recreate anytime)";
inline constexpr std::string_view catJunk = "Junk";
inline constexpr std::string_view catApp = "Large app data (review before touching)";
inline constexpr std::string_view catLib = "App libraries (relocate via their app)";
inline constexpr std::string_view catEvict = "iCloud files stored locally (evictable)";
inline constexpr std::string_view catLeftover = "Orphaned app data (uninstalled apps)";
inline constexpr std::string_view catVM = "VM & container disks";
inline constexpr std::string_view catXform = "Transform candidates (compress to save)";
inline constexpr std::string_view catCompact = "Compress in place (cold compressible files)";
inline constexpr std::string_view catCreative = "Creative-app caches (rebuild in their app)";
inline constexpr std::string_view catMedia = "Media & big downloads (external candidates)";
inline constexpr std::string_view catOld = "Large & old files (unopened 6+ months)";
inline constexpr std::string_view catDL = "Downloads (one-time files)";
inline constexpr std::string_view catSim = "Similar images (near-identical shots)";
inline constexpr std::string_view catDeep = "Deep scan \u2014 other large items";
// A duplicate group: its `extra` holds the member paths.
inline constexpr std::string_view catDupes = "Duplicates (reclaim via APFS clone)";

// The display order of categories, top to bottom.
inline constexpr std::array<std::string_view, 19> categoryOrder = {
    catBig,   catAI,       catDev, catEnv,   catJunk,    catApp,      catLib,
    catEvict, catLeftover, catVM,  catXform, catCompact, catCreative, catMedia,
    catOld,   catDL,       catSim, catDeep,  catDupes};

// A heading: the text before the first " (" and then before the first " \u2014", trimmed of
// blanks and tabs. "Deep scan \u2014 other large items" gives "Deep scan".
std::string shortCategoryName(std::string_view category);

// The coarse group of an item's category ("AI Models", "Media", "Dev", ...); "Other" for any
// category without one.
std::string smartGroup(const SpaceItem& item);

// A single model file (not a folder) of category catAI.
bool isLooseAIModel(const SpaceItem& item);

// The model a loose model file belongs to: the folder named right after the last "models"
// component, unless that folder is one of the shared kinds ("checkpoints", "loras", ...), in
// which case the file's own folder, named by its last two components joined with " \u203A ".
struct LooseModelGroup {
    std::string key;   // a path
    std::string name;  // for display
    bool operator==(const LooseModelGroup&) const = default;
};
LooseModelGroup looseModelGroup(std::string_view path);

// A duplicate group with a member inside a local AI tool's store (ollama, LM Studio, the
// Hugging Face or ACE-Step caches), and every other duplicate group.
bool isAIDupe(const SpaceItem& item);
bool isOrdinaryDupe(const SpaceItem& item);

}  // namespace orvane

// Feeds every field, so equal items hash equal; seeded per process, so never persist the value.
template <>
struct std::hash<orvane::SpaceItem> {
    std::size_t operator()(const orvane::SpaceItem& item) const noexcept;
};
