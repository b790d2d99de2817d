#include "core/scan/space_item.hpp"

#include <chrono>
#include <cmath>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/scan/file_kind.hpp"
#include "core/scan/internal/hasher.hpp"

namespace orvane {
namespace {

using ordered_json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 3> kSafetyRaw = {"Safe", "Caution", "Review"};
constexpr std::array<std::string_view, 3> kSafetyKeys = {"safety.safe", "safety.caution",
                                                         "safety.review"};
constexpr std::array<std::string_view, 3> kSuggestedRaw = {"Delete", "Move to external",
                                                           "Review first"};

// Folders that several models share inside a "models" library: a file in one of them belongs
// to no single model, so it is grouped by its own folder instead.
constexpr std::array<std::string_view, 12> kSharedModelFolders = {
    "checkpoints", "loras", "lora",        "vae",        "text_encoders", "diffusion_models",
    "unet",        "clip",  "clip_vision", "controlnet", "embeddings",    "upscale_models"};

constexpr std::array<std::string_view, 4> kAIStoreMarkers = {
    "/.ollama", "/.lmstudio", "/.cache/huggingface", "/.cache/ace-step"};

struct DecodeFailure {
    std::string message;
};

template <typename Json>
const Json& field(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end())
        throw DecodeFailure{"No value for \"" + std::string(key) + "\" in an item."};
    return *it;
}

template <typename Json>
std::string stringField(const Json& object, const char* key) {
    const Json& value = field(object, key);
    if (!value.is_string())
        throw DecodeFailure{"\"" + std::string(key) + "\" of an item must be a string."};
    return value.template get<std::string>();
}

template <typename Json>
bool boolField(const Json& object, const char* key) {
    const Json& value = field(object, key);
    if (!value.is_boolean())
        throw DecodeFailure{"\"" + std::string(key) + "\" of an item must be true or false."};
    return value.template get<bool>();
}

template <typename Json>
std::int64_t byteCountField(const Json& object, const char* key) {
    const Json& value = field(object, key);
    if (auto n = jsonByteCount(value)) return *n;
    throw DecodeFailure{"\"" + std::string(key) + "\" of an item must be a whole number of bytes from -1 to 2^60."};
}

template <typename Json>
std::vector<std::string> stringArrayField(const Json& object, const char* key) {
    const Json& value = field(object, key);
    const DecodeFailure bad{"\"" + std::string(key) + "\" of an item must be an array of strings."};
    if (!value.is_array()) throw bad;
    std::vector<std::string> out;
    out.reserve(value.size());
    for (const auto& element : value) {
        if (!element.is_string()) throw bad;
        out.push_back(element.template get<std::string>());
    }
    return out;
}

template <typename E, typename Json>
E rawField(const Json& object, const char* key) {
    std::string raw = stringField(object, key);
    auto value = fromRawValue<E>(raw);
    if (!value) throw DecodeFailure{"\"" + raw + "\" is no " + std::string(key) + " of an item."};
    return *value;
}

template <typename Json>
std::optional<TimePoint> dateField(const Json& object, const char* key, JSONDateEncoding dates) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    if (dates == JSONDateEncoding::iso8601) {
        if (!it->is_string())
            throw DecodeFailure{"\"" + std::string(key) +
                                "\" of an item must be an ISO 8601 date."};
        auto date = parseISO8601(it->template get_ref<const std::string&>());
        if (!date)
            throw DecodeFailure{"\"" + std::string(key) +
                                "\" of an item must be an ISO 8601 date."};
        return date;
    }
    if (!it->is_number())
        throw DecodeFailure{"\"" + std::string(key) + "\" of an item must be a number of seconds."};
    auto date = dateFromReferenceSeconds(it->template get<double>());
    if (!date)
        throw DecodeFailure{"\"" + std::string(key) + "\" of an item must be a date of the years 1 to 9999."};
    return date;
}

template <typename Json>
SpaceItem decodeItem(const Json& value, JSONDateEncoding dates) {
    if (!value.is_object()) throw DecodeFailure{"An item must be a JSON object."};
    SpaceItem item;
    item.id = stringField(value, "id");
    item.title = stringField(value, "title");
    item.category = stringField(value, "category");
    item.safety = rawField<Safety>(value, "safety");
    item.suggested = rawField<Suggested>(value, "suggested");
    item.note = stringField(value, "note");
    item.contentsOnly = boolField(value, "contentsOnly");
    item.extra = stringArrayField(value, "extra");
    item.isDir = boolField(value, "isDir");
    item.sizeBytes = byteCountField(value, "sizeBytes");
    item.lastUsed = dateField(value, "lastUsed", dates);
    return item;
}

template <typename Json>
SpaceItemDecoding decodeOne(const Json& value, JSONDateEncoding dates) {
    try {
        return {decodeItem(value, dates), {}};
    } catch (const DecodeFailure& failure) {
        return {std::nullopt, failure.message};
    }
}

template <typename Json>
SpaceItemsDecoding decodeMany(const Json& value, JSONDateEncoding dates) {
    if (!value.is_array()) return {std::nullopt, "Items must be a JSON array."};
    std::vector<SpaceItem> items;
    items.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        auto one = decodeOne(value[i], dates);
        if (!one.item) return {std::nullopt, "Item " + std::to_string(i) + ": " + one.error};
        items.push_back(std::move(*one.item));
    }
    return {std::move(items), {}};
}

std::string_view trimBlanksAndTabs(std::string_view text) {
    auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

// pathComponents as the platform gives them: a leading "/" is a component of its own, and so is
// a trailing one.
std::vector<std::string> platformPathComponents(std::string_view path) {
    std::vector<std::string> parts;
    if (path.starts_with('/')) parts.emplace_back("/");
    for (auto& part : pathComponents(path)) parts.push_back(std::move(part));
    if (path.size() > 1 && path.ends_with('/')) parts.emplace_back("/");
    return parts;
}

// The platform's path(withComponents:) for the first `count` components.
std::string joinedPath(const std::vector<std::string>& parts, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) {
        if (parts[i] == "/") {
            if (out.empty() || out.back() != '/') out += '/';
            continue;
        }
        if (!out.empty() && out.back() != '/') out += '/';
        out += parts[i];
    }
    return out;
}

}  // namespace

std::string_view rawValue(Safety safety) {
    return kSafetyRaw[static_cast<std::size_t>(safety)];
}
std::string_view rawValue(Suggested suggested) {
    return kSuggestedRaw[static_cast<std::size_t>(suggested)];
}

template <>
std::optional<Safety> fromRawValue<Safety>(std::string_view raw) {
    for (std::size_t i = 0; i < kSafetyRaw.size(); ++i)
        if (kSafetyRaw[i] == raw) return static_cast<Safety>(i);
    return std::nullopt;
}

template <>
std::optional<Suggested> fromRawValue<Suggested>(std::string_view raw) {
    for (std::size_t i = 0; i < kSuggestedRaw.size(); ++i)
        if (kSuggestedRaw[i] == raw) return static_cast<Suggested>(i);
    return std::nullopt;
}

std::string displayName(Safety safety) {
    auto i = static_cast<std::size_t>(safety);
    return L(kSafetyKeys[i], kSafetyRaw[i]);
}

ordered_json toJSON(const SpaceItem& item, JSONDateEncoding dates) {
    ordered_json out = ordered_json::object();
    out["id"] = item.id;
    out["title"] = item.title;
    out["category"] = item.category;
    out["safety"] = rawValue(item.safety);
    out["suggested"] = rawValue(item.suggested);
    out["note"] = item.note;
    out["contentsOnly"] = item.contentsOnly;
    out["extra"] = item.extra;
    out["isDir"] = item.isDir;
    out["sizeBytes"] = item.sizeBytes;
    if (item.lastUsed) {
        if (dates == JSONDateEncoding::iso8601)
            out["lastUsed"] = iso8601(*item.lastUsed);
        else
            out["lastUsed"] = secondsSinceReferenceDate(*item.lastUsed);
    }
    return out;
}

ordered_json toJSON(const std::vector<SpaceItem>& items, JSONDateEncoding dates) {
    ordered_json out = ordered_json::array();
    for (const auto& item : items) out.push_back(toJSON(item, dates));
    return out;
}

SpaceItemDecoding decodeSpaceItem(const nlohmann::json& value, JSONDateEncoding dates) {
    return decodeOne(value, dates);
}
SpaceItemDecoding decodeSpaceItem(const ordered_json& value, JSONDateEncoding dates) {
    return decodeOne(value, dates);
}
SpaceItemsDecoding decodeSpaceItems(const nlohmann::json& value, JSONDateEncoding dates) {
    return decodeMany(value, dates);
}
SpaceItemsDecoding decodeSpaceItems(const ordered_json& value, JSONDateEncoding dates) {
    return decodeMany(value, dates);
}

std::string shortCategoryName(std::string_view category) {
    std::string_view head = category.substr(0, category.find(" ("));
    head = head.substr(0, head.find(" \u2014"));
    return std::string(trimBlanksAndTabs(head));
}

std::string smartGroup(const SpaceItem& item) {
    const std::string& c = item.category;
    if (c == catAI) return "AI Models";
    if (c == catMedia) return "Media";
    if (c == catOld) return "Files";
    if (c == catDL) return "Downloads";
    if (c == catDev || c == catEnv) return "Dev";
    if (c == catLib) return "Libraries";
    if (c == catVM) return "VMs";
    if (c == catApp) return "App Data";
    return "Other";
}

bool isLooseAIModel(const SpaceItem& item) {
    return item.category == catAI && !item.isDir && fileKindOf(item) == FileKind::aiModel;
}

LooseModelGroup looseModelGroup(std::string_view path) {
    auto parts = platformPathComponents(path);
    if (!parts.empty()) parts.pop_back();  // the file name

    for (std::size_t i = parts.size(); i-- > 0;) {
        if (lowercased(parts[i]) != "models") continue;
        if (i + 1 < parts.size()) {
            const std::string& next = parts[i + 1];
            const std::string lower = lowercased(next);
            bool shared = false;
            for (auto word : kSharedModelFolders) shared = shared || lower == word;
            if (!shared) return {joinedPath(parts, i + 2), next};
        }
        break;  // only the last "models" counts
    }

    std::string name;
    std::size_t from = parts.size() > 2 ? parts.size() - 2 : 0;
    for (std::size_t i = from; i < parts.size(); ++i) {
        if (parts[i] == "/") continue;
        if (!name.empty()) name += " \u203A ";
        name += parts[i];
    }
    return {joinedPath(parts, parts.size()), name};
}

bool isAIDupe(const SpaceItem& item) {
    if (item.category != catDupes) return false;
    for (const auto& member : item.extra)
        for (auto marker : kAIStoreMarkers)
            if (member.find(marker) != std::string::npos) return true;
    return false;
}

bool isOrdinaryDupe(const SpaceItem& item) {
    return item.category == catDupes && !isAIDupe(item);
}

}  // namespace orvane

std::size_t std::hash<orvane::SpaceItem>::operator()(const orvane::SpaceItem& item) const noexcept {
    orvane::scan::internal::Hasher h;
    h.combine(std::string_view(item.id));
    h.combine(std::string_view(item.title));
    h.combine(std::string_view(item.category));
    h.combine(orvane::rawValue(item.safety));
    h.combine(orvane::rawValue(item.suggested));
    h.combine(std::string_view(item.note));
    h.combine(item.contentsOnly);
    h.combine(static_cast<std::uint64_t>(item.extra.size()));
    for (const auto& member : item.extra) h.combine(std::string_view(member));
    h.combine(item.isDir);
    h.combine(item.sizeBytes);
    h.combine(item.lastUsed.has_value());
    if (item.lastUsed)
        h.combine(static_cast<std::int64_t>(item.lastUsed->time_since_epoch().count()));
    return static_cast<std::size_t>(h.finalize());
}
