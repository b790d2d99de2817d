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

constexpr std::array<std::string_view, 3> kSafetyKeys = {"safety.safe", "safety.caution",
                                                         "safety.review"};

// Folders that several models share inside a "models" library: a file in one of them belongs
// to no single model, so it is grouped by its own folder instead.
constexpr std::array<std::string_view, 12> kSharedModelFolders = {
    "checkpoints", "loras", "lora",        "vae",        "text_encoders", "diffusion_models",
    "unet",        "clip",  "clip_vision", "controlnet", "embeddings",    "upscale_models"};

constexpr std::array<std::string_view, 4> kAIStoreMarkers = {
    "/.ollama", "/.lmstudio", "/.cache/huggingface", "/.cache/ace-step"};

template <typename Json>
SpaceItemDecoding decodeItem(const Json& value, JSONDateEncoding dates, std::string context) {
    BasicJSONFields<Json> fields(value, std::move(context));
    SpaceItem item{.id = fields.string("id"),
                   .title = fields.string("title"),
                   .category = fields.string("category"),
                   .safety = fields.template raw<Safety>("safety"),
                   .suggested = fields.template raw<Suggested>("suggested"),
                   .note = fields.string("note"),
                   .contentsOnly = fields.boolean("contentsOnly"),
                   .extra = fields.strings("extra"),
                   .isDir = fields.boolean("isDir"),
                   .sizeBytes = fields.byteCount("sizeBytes"),
                   .lastUsed = fields.optionalDate("lastUsed", dates)};
    if (!fields) return {std::nullopt, fields.error()};
    return {std::move(item), {}};
}

template <typename Json>
SpaceItemsDecoding decodeMany(const Json& value, JSONDateEncoding dates) {
    if (!value.is_array()) return {std::nullopt, "Items must be a JSON array."};
    std::vector<SpaceItem> items;
    items.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        auto one = decodeItem(value[i], dates, "item " + std::to_string(i));
        if (!one.item) return {std::nullopt, std::move(one.error)};
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

std::string displayName(Safety safety) {
    return L(kSafetyKeys[static_cast<std::size_t>(safety)], rawValue(safety));
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
    return decodeItem(value, dates, "an item");
}
SpaceItemDecoding decodeSpaceItem(const ordered_json& value, JSONDateEncoding dates) {
    return decodeItem(value, dates, "an item");
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
