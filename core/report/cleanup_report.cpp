#include "core/report/cleanup_report.hpp"

#include <fmt/format.h>
#include <kainjow/mustache.hpp>

#include <algorithm>
#include <map>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/scan/top_most.hpp"

namespace orvane {

namespace mu = kainjow::mustache;

namespace {

// The page has no script, fetches nothing and keeps its colours readable in light and dark.
constexpr const char* kPage = R"PAGE(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Clean-up report: {{root}}</title>
<style>
body{margin:0;font:15px/1.45 -apple-system,"Segoe UI",Helvetica,Arial,sans-serif;color:#1a1a1a;background:#fff}
main{max-width:1240px;margin:0 auto;padding:16px}
h1{font-size:1.5em;margin:.2em 0}h2{font-size:1.2em;margin:1.4em 0 .4em;border-bottom:1px solid #ccc}
.sub,.muted{color:#4a4a4a}
svg{display:block;width:100%;height:auto;background:#fafafa}
svg text{font-size:11px;fill:#1a1a1a;pointer-events:none}
.scroll{overflow-x:auto}
table{border-collapse:collapse;width:100%;min-width:560px}
th,td{text-align:left;vertical-align:top;padding:4px 6px;border-bottom:1px solid #e0e0e0}
td.num,th.num{text-align:right;white-space:nowrap}
tr.cat th{background:#eef1f4}
.path{color:#4a4a4a;font-size:.85em;word-break:break-all}
.protect{color:#7a2e00;font-weight:600}
.safe{color:#1b5e20;font-weight:600}.caution{color:#8a3b00;font-weight:600}.review{color:#333}
ul.legend{list-style:none;padding:0;display:flex;flex-wrap:wrap;gap:6px 14px;font-size:.9em}
.sw{display:inline-block;width:12px;height:12px;margin-right:5px;vertical-align:-1px;border:1px solid #555}
@media (prefers-color-scheme:dark){body{background:#121212;color:#ececec}.sub,.muted,.path{color:#c4c4c4}
th,td{border-color:#333}tr.cat th{background:#1f262c}.protect{color:#ffb08a}.safe{color:#8fd694}.caution{color:#ffc27a}
.review{color:#ddd}svg{background:#1c1c1c}svg text{fill:#111}}
</style>
</head>
<body>
<main>
<h1>Where the space under <bdi>{{root}}</bdi> went</h1>
<p class="sub">Made {{generated}}. {{totalLine}} {{freeLine}}</p>

<section id="picture">
<h2>The picture</h2>
<p class="muted">Each rectangle is as large as what it holds, measured as <code>du</code> measures: the space taken on the disk, on this disk only, a file with several names counted once. Folders are grey; what the scan found is coloured by its kind, with a solid green edge when it is safe to remove and a dashed orange one when it needs care. Point at a rectangle to see its path and size.</p>
<svg id="treemap" viewBox="0 0 {{width}} {{height}}" role="img" aria-label="Treemap of {{root}}">
{{#tiles}}<rect class="tile {{cls}}" x="{{x}}" y="{{y}}" width="{{w}}" height="{{h}}" fill="{{fill}}" stroke="{{stroke}}" stroke-width="{{strokeWidth}}"{{#dashed}} stroke-dasharray="4 2"{{/dashed}}><title>{{tip}}</title></rect>{{#hasLabel}}<text x="{{lx}}" y="{{ly}}">{{label}}</text>{{/hasLabel}}
{{/tiles}}</svg>
<ul class="legend">{{#legend}}<li><span class="sw" style="background:{{fill}}"></span>{{name}}</li>{{/legend}}</ul>
{{#hasGrowth}}<h3>What grew since the last report of this folder</h3>
<ul>{{#growth}}<li><bdi>{{path}}</bdi>: {{before}} → {{now}}</li>{{/growth}}</ul>{{/hasGrowth}}
</section>

<section id="findings">
<h2>What the scan found</h2>
<p>May be freed safely: <strong>{{safeTotal}}</strong>. May be moved to another drive: <strong>{{moveTotal}}</strong>. Only to review: <strong>{{reviewTotal}}</strong>. A folder and a file inside it count once.</p>
{{#hasFindings}}<div class="scroll"><table id="findings-table">
<thead><tr><th class="num">Size</th><th>Safety</th><th>Item</th><th>Note</th></tr></thead>
{{#categories}}<tbody><tr class="cat"><th colspan="4">{{name}}: {{size}}</th></tr>
{{#rows}}<tr class="finding"><td class="num">{{size}}</td><td class="{{safetyClass}}">{{safety}}</td><td><bdi>{{title}}</bdi><div class="path"><bdi>{{path}}</bdi></div></td><td>{{note}}{{#hasProtection}}<div class="protect">{{protection}}</div>{{/hasProtection}}</td></tr>
{{/rows}}</tbody>
{{/categories}}</table></div>{{/hasFindings}}
{{^hasFindings}}<p>The scan found nothing over its size threshold here.</p>{{/hasFindings}}
</section>
{{#hasStorage}}
<section id="storage">
<h2>The disk's figures and how sure each is</h2>
<div class="scroll"><table>
<thead><tr><th>Figure</th><th class="num">Size</th><th>How sure</th><th>What it is</th></tr></thead>
<tbody>{{#storage}}<tr><td>{{label}}</td><td class="num">{{size}}</td><td>{{confidence}}</td><td>{{what}}</td></tr>
{{/storage}}</tbody></table></div>
</section>{{/hasStorage}}
{{#hasTrend}}
<section id="trend">
<h2>Free space over time</h2>
{{#hasForecast}}<p>{{forecast}}</p>{{/hasForecast}}
<svg id="free-space" viewBox="0 0 640 180" role="img" aria-label="Free space at each recorded scan">
<polyline fill="none" stroke="#1565c0" stroke-width="2" points="{{points}}"/>
{{#dots}}<circle cx="{{x}}" cy="{{y}}" r="3" fill="#1565c0"><title>{{tip}}</title></circle>{{/dots}}
<text x="4" y="14">{{high}}</text><text x="4" y="170">{{low}}</text>
<text x="60" y="178">{{firstDate}}</text><text x="636" y="178" text-anchor="end">{{lastDate}}</text>
</svg>
</section>{{/hasTrend}}
{{#hasDuplicates}}
<section id="duplicates">
<h2>Identical copies among the findings</h2>
<ul>{{#duplicates}}<li>{{size}} each, {{claim}} to gain by merging. Kept: <bdi>{{keeper}}</bdi> ({{reason}}) Copies: {{#copies}}<bdi>{{.}}</bdi>; {{/copies}}</li>
{{/duplicates}}</ul>
</section>{{/hasDuplicates}}
{{#hasArtifacts}}
<section id="artifacts">
<h2>Project folders that rebuild themselves</h2>
<div class="scroll"><table>
<thead><tr><th class="num">Size</th><th>Folder</th><th>What it is</th><th>What brings it back</th></tr></thead>
<tbody>{{#artifacts}}<tr><td class="num">{{size}}</td><td><bdi>{{path}}</bdi></td><td>{{what}}</td><td>{{rebuild}}</td></tr>
{{/artifacts}}</tbody></table></div>
</section>{{/hasArtifacts}}

<section id="left-out">
<h2>What this page could not read or leaves out</h2>
<ul>{{#unreadable}}<li>Could not be read, so not counted: <bdi>{{.}}</bdi></li>{{/unreadable}}
{{#moreUnreadable}}<li>{{moreUnreadable}}</li>{{/moreUnreadable}}
{{#otherFileSystems}}<li>On another disk, so not counted here: <bdi>{{.}}</bdi></li>{{/otherFileSystems}}
{{#leftOut}}<li>{{.}}</li>{{/leftOut}}</ul>
</section>
</main>
</body>
</html>
)PAGE";

constexpr std::size_t kUnreadableShown = 50;

std::string number(double value) { return fmt::format("{:.1f}", value); }

std::string fillOf(const TreemapTile& tile) {
    switch (tile.kind) {
        case TileKind::folder: return "#e3e7ea";
        case TileKind::otherFiles: return "#c9d1d6";
        case TileKind::smallerItems: return "#b3bdc3";
        case TileKind::finding: break;
    }
    switch (tile.fileKind.value_or(FileKind::other)) {
        case FileKind::aiModel: return "#8e6fd1";
        case FileKind::video: return "#e0665e";
        case FileKind::audio: return "#f0a040";
        case FileKind::image: return "#5cb85c";
        case FileKind::document: return "#4a90d9";
        case FileKind::archive: return "#a98467";
        case FileKind::code: return "#2fa89a";
        case FileKind::app: return "#d36fb0";
        case FileKind::folder: return "#9aa8b0";
        case FileKind::other: return "#8c8c8c";
    }
    return "#8c8c8c";
}

std::string tipOf(const TreemapTile& tile) {
    const std::string size = fmtBytes(tile.bytes);
    switch (tile.kind) {
        case TileKind::folder: return tile.path + " — " + size;
        case TileKind::otherFiles: return "Other files directly in " + tile.path + " — " + size;
        case TileKind::smallerItems: return "Smaller items in " + tile.path + " — " + size;
        case TileKind::finding:
            return tile.path + " — " + size + " — " + label(tile.fileKind.value_or(FileKind::other)) + ", " +
                   displayName(tile.safety.value_or(Safety::review));
    }
    return tile.path;
}

std::string safetyClass(Safety safety) {
    switch (safety) {
        case Safety::safe: return "safe";
        case Safety::caution: return "caution";
        case Safety::review: return "review";
    }
    return "review";
}

mu::data treemapData(const CleanupReport& report) {
    mu::list tiles;
    for (const auto& tile : report.tiles) {
        if (tile.rect.area() <= 0) continue;
        mu::object o;
        o["cls"] = tile.kind == TileKind::finding ? "finding" : tile.kind == TileKind::folder ? "folder" : "rest";
        o["x"] = number(tile.rect.x);
        o["y"] = number(tile.rect.y);
        o["w"] = number(tile.rect.width);
        o["h"] = number(tile.rect.height);
        o["fill"] = fillOf(tile);
        const bool safe = tile.safety == Safety::safe, caution = tile.safety == Safety::caution;
        o["stroke"] = safe ? "#1b5e20" : caution ? "#e65100" : "#5f6b72";
        o["strokeWidth"] = safe || caution ? "2" : "0.6";
        o["dashed"] = mu::data(caution);
        o["tip"] = tipOf(tile);
        const bool labelled = !tile.label.empty();
        o["hasLabel"] = mu::data(labelled);
        if (labelled) {
            const auto fits = static_cast<std::size_t>(std::max(1.0, (tile.rect.width - 6) / 6.5));
            o["label"] = clipCharacters(tile.label + " " + fmtBytes(tile.bytes), fits);
            o["lx"] = number(tile.rect.x + 3);
            o["ly"] = number(tile.rect.y + 12);
        }
        tiles.emplace_back(std::move(o));
    }
    return tiles;
}

mu::data legendData() {
    mu::list legend;
    for (const auto kind : allFileKinds) {
        TreemapTile tile;
        tile.kind = TileKind::finding;
        tile.fileKind = kind;
        legend.emplace_back(mu::object{{"fill", fillOf(tile)}, {"name", label(kind)}});
    }
    for (const auto kind : {TileKind::folder, TileKind::otherFiles, TileKind::smallerItems}) {
        TreemapTile tile;
        tile.kind = kind;
        legend.emplace_back(mu::object{{"fill", fillOf(tile)},
                                       {"name", kind == TileKind::folder       ? "Folder"
                                                : kind == TileKind::otherFiles ? "Other files"
                                                                               : "Smaller items"}});
    }
    return legend;
}

void addTrend(mu::data& page, const CleanupReport& report) {
    if (report.trend.size() < 2) return;
    const auto [low, high] = std::minmax_element(report.trend.begin(), report.trend.end(),
                                                 [](const auto& a, const auto& b) { return a.free < b.free; });
    const double first = std::chrono::duration<double>(report.trend.front().date.time_since_epoch()).count();
    const double last = std::chrono::duration<double>(report.trend.back().date.time_since_epoch()).count();
    const double span = std::max(1.0, last - first);
    const double range = std::max<double>(1, static_cast<double>(high->free - low->free));
    std::string points;
    mu::list dots;
    for (const auto& point : report.trend) {
        const double t = std::chrono::duration<double>(point.date.time_since_epoch()).count();
        const double x = 60 + (t - first) / span * 570;
        const double y = 160 - static_cast<double>(point.free - low->free) / range * 140;
        points += number(x) + "," + number(y) + " ";
        dots.emplace_back(mu::object{{"x", number(x)}, {"y", number(y)},
                                     {"tip", fmtMediumDate(point.date) + ": " + fmtBytes(point.free) + " free"}});
    }
    page.set("hasTrend", true);
    page.set("points", points);
    page.set("dots", dots);
    page.set("high", fmtBytes(high->free));
    page.set("low", fmtBytes(low->free));
    page.set("firstDate", fmtMediumDate(report.trend.front().date));
    page.set("lastDate", fmtMediumDate(report.trend.back().date));
}

std::string totalLine(const CleanupReport& report) {
    if (report.totalBytes < 0) return "Its size could not be measured.";
    return fmtBytes(report.totalBytes) + " in " + counted(report.files, "file") + ".";
}

std::string freeLine(const CleanupReport& report) {
    if (report.free < 0 || report.capacity < 0) return "The disk's free space is unknown.";
    return fmtBytes(report.free) + " free of " + fmtBytes(report.capacity) + " on this disk.";
}

mu::data pageData(const CleanupReport& report) {
    mu::data page;
    page.set("root", report.root);
    page.set("generated", fmtMediumDateShortTime(report.generated));
    page.set("totalLine", totalLine(report));
    page.set("freeLine", freeLine(report));
    page.set("width", number(report.canvas.width));
    page.set("height", number(report.canvas.height));
    page.set("tiles", treemapData(report));
    page.set("legend", legendData());

    if (report.growth && !report.growth->empty()) {
        mu::list growth;
        for (const auto& grown : *report.growth)
            growth.emplace_back(mu::object{{"path", grown.path}, {"before", fmtBytes(grown.before)}, {"now", fmtBytes(grown.now)}});
        page.set("hasGrowth", true);
        page.set("growth", growth);
    }

    page.set("safeTotal", fmtBytes(report.totals.safe));
    page.set("moveTotal", fmtBytes(report.totals.move));
    page.set("reviewTotal", fmtBytes(report.totals.review));
    mu::list categories;
    for (const auto& category : report.categories) {
        mu::list rows;
        for (const auto& row : category.rows) {
            mu::object o{{"size", fmtBytes(row.item.sizeBytes)},
                         {"safety", displayName(row.item.safety)},
                         {"safetyClass", safetyClass(row.item.safety)},
                         {"title", row.item.title},
                         {"path", row.item.id},
                         {"note", row.item.note},
                         {"hasProtection", mu::data(row.protectionLine.has_value())}};
            if (row.protectionLine) o["protection"] = *row.protectionLine;
            rows.emplace_back(std::move(o));
        }
        categories.emplace_back(mu::object{{"name", category.name}, {"size", fmtBytes(category.bytes)}, {"rows", rows}});
    }
    page.set("hasFindings", !report.categories.empty());
    page.set("categories", categories);

    if (report.storage) {
        mu::list storage;
        for (const auto& line : *report.storage)
            storage.emplace_back(mu::object{{"label", line.label},
                                            {"size", line.bytes ? fmtBytes(*line.bytes) : "—"},
                                            {"confidence", line.confidence},
                                            {"what", line.what}});
        page.set("hasStorage", true);
        page.set("storage", storage);
    }
    if (report.forecastSentence) {
        page.set("hasForecast", true);
        page.set("forecast", *report.forecastSentence);
    }
    addTrend(page, report);
    if (report.duplicates && !report.duplicates->empty()) {
        mu::list groups;
        for (const auto& group : *report.duplicates) {
            mu::list copies;
            for (const auto& copy : group.copies) copies.emplace_back(copy);
            groups.emplace_back(mu::object{{"size", fmtBytes(group.size)}, {"claim", fmtBytes(group.claim)},
                                           {"keeper", group.keeper}, {"reason", group.reason}, {"copies", copies}});
        }
        page.set("hasDuplicates", true);
        page.set("duplicates", groups);
    }
    if (!report.artifacts.empty()) {
        mu::list artifacts;
        for (const auto& artifact : report.artifacts)
            artifacts.emplace_back(mu::object{{"size", fmtBytes(artifact.bytes)}, {"path", artifact.path},
                                              {"what", artifact.what}, {"rebuild", artifact.rebuild}});
        page.set("hasArtifacts", true);
        page.set("artifacts", artifacts);
    }

    mu::list unreadable, others, leftOut;
    for (std::size_t i = 0; i < report.unreadable.size() && i < kUnreadableShown; ++i) unreadable.emplace_back(report.unreadable[i]);
    if (report.unreadable.size() > kUnreadableShown)
        page.set("moreUnreadable", "And " + counted(static_cast<std::int64_t>(report.unreadable.size() - kUnreadableShown),
                                                     "more folder") + " that could not be read.");
    for (const auto& path : report.otherFileSystems) others.emplace_back(path);
    for (const auto& sentence : report.leftOut) leftOut.emplace_back(sentence);
    page.set("unreadable", unreadable);
    page.set("otherFileSystems", others);
    page.set("leftOut", leftOut);
    return page;
}

std::string markdownCell(std::string_view text) {
    std::string out;
    for (const char c : escapeControlCharacters(text)) {
        if (c == '|' || c == '\\' || c == '`' || c == '*' || c == '_' || c == '<' || c == '[') out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

std::string pageText(std::string_view text) {
    const std::string visible = escapeControlCharacters(text);
    std::string out;
    out.reserve(visible.size());
    for (std::size_t i = 0; i < visible.size(); ++i) {
        const auto byte = static_cast<unsigned char>(visible[i]);
        // U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069: marks that turn the text after them around.
        if (byte == 0xE2 && i + 2 < visible.size()) {
            const auto b1 = static_cast<unsigned char>(visible[i + 1]), b2 = static_cast<unsigned char>(visible[i + 2]);
            const bool mark = (b1 == 0x80 && (b2 == 0x8E || b2 == 0x8F || (b2 >= 0xAA && b2 <= 0xAE))) ||
                              (b1 == 0x81 && b2 >= 0xA6 && b2 <= 0xA9);
            if (mark) {
                const unsigned codePoint = 0x2000u + ((b1 & 0x3Fu) << 6) + (b2 & 0x3Fu);
                out += fmt::format("\\u{:04X}", codePoint);
                i += 2;
                continue;
            }
        }
        out += visible[i];
    }
    return mu::html_escape(out);
}

std::vector<ReportCategory> reportCategories(const std::vector<ReportRow>& rows) {
    std::map<std::string, std::vector<ReportRow>> byCategory;
    for (const auto& row : rows) byCategory[row.item.category].push_back(row);
    std::vector<ReportCategory> categories;
    for (auto& [name, members] : byCategory) {
        std::stable_sort(members.begin(), members.end(),
                         [](const ReportRow& a, const ReportRow& b) { return a.item.sizeBytes > b.item.sizeBytes; });
        std::vector<SpaceItem> items;
        for (const auto& row : members) items.push_back(row.item);
        categories.push_back({name, topMostBytes(items), std::move(members)});
    }
    std::stable_sort(categories.begin(), categories.end(),
                     [](const ReportCategory& a, const ReportCategory& b) { return a.bytes > b.bytes; });
    return categories;
}

ReportTotals reportTotals(const std::vector<SpaceItem>& items) {
    std::vector<SpaceItem> safe, move, review;
    for (const auto& item : items) {
        if (item.safety == Safety::safe) safe.push_back(item);
        else if (item.suggested == Suggested::move) move.push_back(item);
        else review.push_back(item);
    }
    return {topMostBytes(safe), topMostBytes(move), topMostBytes(review)};
}

std::string reportHTML(const CleanupReport& report) {
    mu::mustache page{kPage};
    page.set_custom_escape([](const std::string& text) { return pageText(text); });
    return page.render(pageData(report));
}

std::string reportMarkdown(const CleanupReport& report) {
    std::string md = "# Where the space under " + markdownCell(report.root) + " went\n\n";
    md += "Made " + fmtMediumDateShortTime(report.generated) + ". " + totalLine(report) + " " + freeLine(report) + "\n\n";
    md += "## What the scan found\n\n";
    md += "May be freed safely: **" + fmtBytes(report.totals.safe) + "**. May be moved: **" + fmtBytes(report.totals.move) +
          "**. Only to review: **" + fmtBytes(report.totals.review) + "**.\n\n";
    if (!report.categories.empty()) {
        md += "| Size | Safety | Category | Item | Note |\n|---:|---|---|---|---|\n";
        for (const auto& category : report.categories)
            for (const auto& row : category.rows)
                md += "| " + fmtBytes(row.item.sizeBytes) + " | " + displayName(row.item.safety) + " | " +
                      markdownCell(category.name) + " | " + markdownCell(row.item.id) + " | " +
                      markdownCell(row.protectionLine ? *row.protectionLine + " " + row.item.note : row.item.note) + " |\n";
        md += "\n";
    }
    if (report.storage) {
        md += "## The disk's figures and how sure each is\n\n| Figure | Size | How sure |\n|---|---:|---|\n";
        for (const auto& line : *report.storage)
            md += "| " + markdownCell(line.label) + " | " + (line.bytes ? fmtBytes(*line.bytes) : "—") + " | " +
                  markdownCell(line.confidence) + " |\n";
        md += "\n";
    }
    if (report.forecastSentence) md += "## Free space over time\n\n" + markdownCell(*report.forecastSentence) + "\n\n";
    if (report.duplicates && !report.duplicates->empty()) {
        md += "## Identical copies among the findings\n\n| Size | Kept | Copies |\n|---:|---|---|\n";
        for (const auto& group : *report.duplicates) {
            std::string copies;
            for (const auto& copy : group.copies) copies += (copies.empty() ? "" : "; ") + markdownCell(copy);
            md += "| " + fmtBytes(group.size) + " | " + markdownCell(group.keeper) + " | " + copies + " |\n";
        }
        md += "\n";
    }
    if (!report.artifacts.empty()) {
        md += "## Project folders that rebuild themselves\n\n| Size | Folder | What brings it back |\n|---:|---|---|\n";
        for (const auto& artifact : report.artifacts)
            md += "| " + fmtBytes(artifact.bytes) + " | " + markdownCell(artifact.path) + " | " +
                  markdownCell(artifact.rebuild) + " |\n";
        md += "\n";
    }
    md += "## What this report could not read or leaves out\n\n";
    for (const auto& path : report.unreadable) md += "- Could not be read, so not counted: " + markdownCell(path) + "\n";
    for (const auto& path : report.otherFileSystems) md += "- On another disk, so not counted here: " + markdownCell(path) + "\n";
    for (const auto& sentence : report.leftOut) md += "- " + markdownCell(sentence) + "\n";
    return md;
}

nlohmann::ordered_json toJSON(const CleanupReport& report) {
    auto nullable = [](std::int64_t value) { return value < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(value); };
    nlohmann::ordered_json tiles = nlohmann::ordered_json::array();
    for (const auto& tile : report.tiles) {
        static constexpr const char* kinds[] = {"folder", "finding", "otherFiles", "smallerItems"};
        tiles.push_back({{"kind", kinds[static_cast<int>(tile.kind)]},
                         {"path", tile.path},
                         {"bytes", tile.bytes},
                         {"x", tile.rect.x},
                         {"y", tile.rect.y},
                         {"width", tile.rect.width},
                         {"height", tile.rect.height},
                         {"fileKind", tile.fileKind ? nlohmann::ordered_json(rawValue(*tile.fileKind)) : nlohmann::ordered_json(nullptr)},
                         {"safety", tile.safety ? nlohmann::ordered_json(rawValue(*tile.safety)) : nlohmann::ordered_json(nullptr)},
                         {"depth", tile.depth}});
    }
    nlohmann::ordered_json categories = nlohmann::ordered_json::array();
    for (const auto& category : report.categories) {
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        for (const auto& row : category.rows) {
            auto item = toJSON(row.item, JSONDateEncoding::iso8601);
            item["protection"] = row.protectionLine ? nlohmann::ordered_json(*row.protectionLine) : nlohmann::ordered_json(nullptr);
            rows.push_back(std::move(item));
        }
        categories.push_back({{"name", category.name}, {"bytes", category.bytes}, {"items", rows}});
    }
    nlohmann::ordered_json out = {
        {"root", report.root},
        {"scope", report.scopeKey},
        {"generated", iso8601(report.generated)},
        {"totalBytes", nullable(report.totalBytes)},
        {"files", report.files},
        {"free", nullable(report.free)},
        {"capacity", nullable(report.capacity)},
        {"treemap", {{"width", report.canvas.width}, {"height", report.canvas.height}, {"tiles", tiles}}},
        {"categories", categories},
        {"totals", {{"safe", report.totals.safe}, {"move", report.totals.move}, {"review", report.totals.review}}},
        {"growth", nullptr},
        {"storage", nullptr},
        {"forecastSentence", report.forecastSentence ? nlohmann::ordered_json(*report.forecastSentence) : nlohmann::ordered_json(nullptr)},
        {"trend", nlohmann::ordered_json::array()},
        {"duplicates", nullptr},
        {"artifacts", nlohmann::ordered_json::array()},
        {"unreadable", report.unreadable},
        {"otherFileSystems", report.otherFileSystems},
        {"skippedNames", report.skippedNames},
        {"leftOut", report.leftOut},
    };
    if (report.growth) {
        out["growth"] = nlohmann::ordered_json::array();
        for (const auto& grown : *report.growth)
            out["growth"].push_back({{"path", grown.path}, {"before", grown.before}, {"now", grown.now}});
    }
    if (report.storage) {
        out["storage"] = nlohmann::ordered_json::array();
        for (const auto& line : *report.storage)
            out["storage"].push_back({{"label", line.label},
                                      {"bytes", line.bytes ? nlohmann::ordered_json(*line.bytes) : nlohmann::ordered_json(nullptr)},
                                      {"confidence", line.confidence},
                                      {"what", line.what}});
    }
    for (const auto& point : report.trend) out["trend"].push_back({{"date", iso8601(point.date)}, {"free", point.free}});
    if (report.duplicates) {
        out["duplicates"] = nlohmann::ordered_json::array();
        for (const auto& group : *report.duplicates)
            out["duplicates"].push_back({{"keeper", group.keeper}, {"reason", group.reason}, {"copies", group.copies},
                                         {"size", group.size}, {"claim", group.claim}});
    }
    for (const auto& artifact : report.artifacts)
        out["artifacts"].push_back({{"path", artifact.path}, {"what", artifact.what}, {"rebuild", artifact.rebuild},
                                    {"bytes", artifact.bytes}});
    return out;
}

}  // namespace orvane
