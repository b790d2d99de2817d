#include "core/scan/generic_scan.hpp"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/common/path_rules.hpp"
#include "core/platform/platform.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {
namespace {

constexpr double kColdSeconds = 7'776'000;  // 90 days
constexpr double kFolderFindTimeout = 240;
constexpr double kNetworkFindTimeout = 900;
constexpr double kMetadataTimeout = 5;

const std::set<std::string, std::less<>> kCompressible = {
    "txt", "log", "csv", "json", "xml", "md",  "psd", "tif", "tiff",   "bmp", "wav", "aif", "aiff",
    "sqlite", "db", "mid", "als", "flp", "vital", "doc", "rtf", "html", "plist", "fcpxml", "xmp"};

TimePoint fromSeconds(std::int64_t seconds) { return Clock::from_time_t(static_cast<std::time_t>(seconds)); }

struct Found {
    platform::FileFacts facts;
};

}  // namespace

nlohmann::ordered_json toJSON(const GenericScanDump& dump, JSONDateEncoding dates) {
    nlohmann::ordered_json out;
    out["items"] = toJSON(dump.items, dates);
    out["free"] = dump.free;
    out["total"] = dump.total;
    out["elapsed"] = dump.elapsed;
    out["privilege"] = rawValue(dump.privilege);
    out["skippedNames"] = dump.skippedNames;
    return out;
}

GenericScanDumpDecoding decodeGenericScanDump(const nlohmann::json& value, JSONDateEncoding dates) {
    JSONFields fields(value, "the scan dump");
    GenericScanDump dump;
    if (const auto* items = fields.value("items")) {
        auto decoded = decodeSpaceItems(*items, dates);
        if (decoded.items) dump.items = std::move(*decoded.items);
        else fields.fail(std::move(decoded.error));
    }
    dump.free = fields.byteCount("free");
    dump.total = fields.byteCount("total");
    dump.elapsed = fields.number("elapsed");
    dump.privilege = fields.raw<ScanPrivilege>("privilege");
    dump.skippedNames = static_cast<std::size_t>(fields.optionalWholeNumber("skippedNames", 0, INT64_MAX).value_or(0));
    if (!fields) return {std::nullopt, fields.error()};
    return {std::move(dump), {}};
}

GenericScanDump buildGenericScanDump(const ScanScope& scope, bool useSpotlightDates, ScanPrivilege privilege,
                                     std::uint32_t trashUID, const Facts& facts) {
    const auto started = std::chrono::steady_clock::now();
    const std::string root = scope.root();
    const std::string label = scope.label();
    const TimePoint now = facts.now();
    const auto nowSeconds = static_cast<std::int64_t>(Clock::to_time_t(now));
    const auto coldBefore = nowSeconds - static_cast<std::int64_t>(kColdSeconds);

    // Compression in place is offered only where the file system can do it.
    std::string fsType;
    if (auto mount = facts.mount(root)) fsType = mount->fileSystemType;
    const bool unsupportedFS = !fsType.empty() && fsType != "apfs" && fsType != "hfs";

    const bool folder = std::holds_alternative<scope::Folder>(scope.value);
    const double findTimeout = scope.isNetwork() ? kNetworkFindTimeout : kFolderFindTimeout;
    auto found = facts.run("/usr/bin/find", {root, "-type", "f", "-size", folder ? "+10M" : "+100M", "-print0"},
                           findTimeout, true, ToolErrors::discarded);

    std::vector<SpaceItem> items;
    std::unordered_map<std::string, Found> remembered;
    std::vector<std::string> order;
    for (const auto& path : found.lines) {
        if (pathTraversesSymlink(path, facts)) continue;
        auto entry = facts.lstat(path);
        if (!entry) continue;
        const bool cold = entry->modifiedSeconds < coldBefore;
        const std::string ext = lowercased(pathExtension(path));
        const std::string changed = fmtMediumDate(fromSeconds(entry->modifiedSeconds));
        const std::string dated = (cold ? "Untouched since " : "Last changed ") + changed;
        const std::string parent = lastPathComponent(deletingLastPathComponent(path));

        SpaceItem item;
        item.id = path;
        item.title = lastPathComponent(path);
        if (path.find("/Offloaded/") != std::string::npos) {
            // A relocated file: shortcuts point at it, so it is never a compression candidate.
            item.category = catDeep;
            item.note = "Moved here by Velloran Orvane — shortcuts on this Mac may point at this file, and deleting "
                        "or re-encoding it would break them. Undo lives in History; each shortcut's health in "
                        "Symlinks. " + dated + ".";
        } else if (kCompressible.contains(ext) && cold && !unsupportedFS &&
                   (entry->flags & platform::kFlagCompressed) == 0) {
            item.category = catCompact;
            item.note = dated + " — compressible type; often shrinks in place, and the result is kept only when it "
                                "measures smaller. In " + parent + " on " + label + ".";
        } else {
            item.category = cold ? catOld : catDeep;
            item.note = dated + " — in " + parent + " on " + label + ".";
        }
        item.safety = Safety::review;
        item.suggested = Suggested::review;
        item.sizeBytes = entry->allocatedBytes;
        items.push_back(std::move(item));
        if (remembered.emplace(path, Found{*entry}).second) order.push_back(path);
    }

    const std::string trashPath = root + "/.Trashes/" + std::to_string(trashUID);
    if (facts.exists(trashPath)) {
        const std::int64_t size = duSize(trashPath, facts);
        if (size >= 1) {
            SpaceItem trash;
            trash.id = trashPath;
            trash.title = "Trash on " + label;
            trash.category = catJunk;
            trash.safety = Safety::safe;
            trash.suggested = Suggested::delete_;
            trash.note = "Deleted items still occupying this drive. Emptying frees " + label + ", not your Mac.";
            trash.contentsOnly = true;
            trash.sizeBytes = size;
            items.push_back(std::move(trash));
        }
    }

    // The biggest by logical size get a date; the final order goes by allocated size.
    std::stable_sort(order.begin(), order.end(), [&](const std::string& a, const std::string& b) {
        return remembered.at(a).facts.size > remembered.at(b).facts.size;
    });
    if (order.size() > kDatedItems) order.resize(kDatedItems);
    const std::set<std::string> top(order.begin(), order.end());

    int budget = useSpotlightDates ? static_cast<int>(kDatedItems) : 0;
    for (auto& item : items) {
        if (!top.contains(item.id)) continue;
        auto entry = facts.lstat(item.id);
        if (!entry) continue;
        std::int64_t touch = std::max(entry->modifiedSeconds, entry->accessedSeconds);
        bool opened = false;
        if (budget > 0) {
            --budget;
            auto r = facts.run("/usr/bin/mdls", {"-name", "kMDItemLastUsedDate", "-raw", item.id}, kMetadataTimeout,
                               false, ToolErrors::discarded);
            std::string joined;
            for (std::size_t i = 0; i < r.lines.size(); ++i) joined += (i ? " " : "") + r.lines[i];
            const auto start = joined.find_first_not_of(" \t");
            const auto end = joined.find_last_not_of(" \t");
            if (auto used = parseMetadataDate(start == std::string::npos ? "" : joined.substr(start, end - start + 1))) {
                opened = true;
                touch = std::max<std::int64_t>(touch, Clock::to_time_t(*used));
            }
        }
        const std::int64_t days = (nowSeconds - touch) / 86400;
        std::string text;
        if (opened) {
            text = "Last opened " + fmtMediumDate(fromSeconds(touch));
            if (days >= 31) text += " — " + std::to_string(days) + " days ago";
        } else {
            text = "No record of it being opened — last changed " + fmtMediumDate(fromSeconds(entry->modifiedSeconds));
            if (days >= 31) text += ", " + std::to_string(days) + " days ago";
        }
        item.category = catBig;
        item.note = text + ". In " + lastPathComponent(deletingLastPathComponent(item.id)) + " on " + label + ".";
        item.lastUsed = fromSeconds(touch);
    }

    std::stable_sort(items.begin(), items.end(),
                     [](const SpaceItem& a, const SpaceItem& b) { return a.sizeBytes > b.sizeBytes; });
    if (items.size() > kMaxDumpItems) items.resize(kMaxDumpItems);

    GenericScanDump dump;
    dump.items = std::move(items);
    dump.skippedNames = found.skippedRecords;
    const VolumeFigures volume = facts.volume(root);
    dump.free = volume.available.value_or(-1);
    dump.total = volume.total.value_or(-1);
    dump.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    dump.privilege = privilege;
    return dump;
}

std::map<std::string, SpaceItem> doorScanReplace(std::map<std::string, SpaceItem> current,
                                                 const std::set<std::string>& clearing,
                                                 const std::vector<SpaceItem>& with) {
    return doorScanReplace(std::move(current), [&](const SpaceItem& item) { return clearing.contains(item.category); },
                           with);
}

std::map<std::string, SpaceItem> doorScanReplace(std::map<std::string, SpaceItem> current,
                                                 const std::function<bool(const SpaceItem&)>& clearingWhere,
                                                 const std::vector<SpaceItem>& with) {
    std::erase_if(current, [&](const auto& entry) { return clearingWhere(entry.second); });
    for (const auto& item : with) current.insert_or_assign(item.id, item);
    return current;
}

std::set<std::string> fullScanSurvivorIds(const std::vector<SpaceItem>& targets, const std::vector<SpaceItem>& deep,
                                          const std::vector<SpaceItem>& dupes, const std::vector<SpaceItem>& sims,
                                          const std::vector<SpaceItem>& vclusters) {
    std::set<std::string> ids;
    for (const auto* list : {&targets, &deep, &dupes, &sims, &vclusters})
        for (const auto& item : *list) ids.insert(item.id);
    return ids;
}

bool scopeForeign(std::string_view path) {
    return path.starts_with("/Volumes/") && path.find("/.Trashes/") == std::string_view::npos;
}

std::optional<TimePoint> parseMetadataDate(std::string_view text) {
    // "2020-05-26 13:04:03 +0000"
    if (text.size() != 25 || text[10] != ' ' || text[19] != ' ') return std::nullopt;
    std::string iso(text.substr(0, 10));
    iso += 'T';
    iso += text.substr(11, 8);
    const std::string_view zone = text.substr(20);
    if ((zone[0] != '+' && zone[0] != '-')) return std::nullopt;
    iso += zone.substr(0, 3);
    iso += ':';
    iso += zone.substr(3, 2);
    return parseISO8601(iso);
}

}  // namespace orvane
