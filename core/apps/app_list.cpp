#include "core/apps/app_list.hpp"

#include <algorithm>
#include <chrono>
#include <map>

#include "core/common/text.hpp"

namespace orvane {

namespace {

constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kThirtyDays = 2'592'000;
constexpr std::int64_t kSixtyDays = 5'184'000;

// The oldest date there is: a key that sorts before every real one.
const TimePoint kDistantPast = Clock::from_time_t(kEarliestDateUnixSeconds);

std::int64_t ageSeconds(TimePoint date, TimePoint now) {
    return std::chrono::duration_cast<std::chrono::seconds>(now - date).count();
}

std::int64_t ageDays(TimePoint date, TimePoint now) { return ageSeconds(date, now) / kDay; }

bool isRunning(const InstalledApp& app, const std::set<std::string>& running) {
    return !app.bundleID.empty() && running.contains(app.bundleID);
}

std::optional<TimePoint> latestUse(const InstalledApp& app) {
    if (app.lastUsed && app.activity) return std::max(*app.lastUsed, *app.activity);
    return app.lastUsed ? app.lastUsed : app.activity;
}

std::string_view entryName(const AppListEntry& entry) {
    if (const auto* app = std::get_if<InstalledApp>(&entry.value)) return app->name;
    return std::get<AppVendorGroup>(entry.value).name;
}

std::int64_t entrySize(const AppListEntry& entry) {
    if (const auto* app = std::get_if<InstalledApp>(&entry.value)) return app->size;
    return std::get<AppVendorGroup>(entry.value).size();
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kVendorNames = {{
    {"nativeinstruments", "Native Instruments"},
    {"ableton", "Ableton"},
    {"microsoft", "Microsoft"},
    {"adobe", "Adobe"},
    {"google", "Google"},
    {"anthropic", "Anthropic"},
    {"arturia", "Arturia"},
    {"wondershare", "Wondershare"},
}};

constexpr std::array<std::pair<std::string_view, std::string_view>, 24> kCategories = {{
    {"developer-tools", "Developer Tools"},
    {"graphics-design", "Graphics & Design"},
    {"music", "Music"},
    {"video", "Video"},
    {"productivity", "Productivity"},
    {"utilities", "Utilities"},
    {"photography", "Photography"},
    {"business", "Business"},
    {"education", "Education"},
    {"entertainment", "Entertainment"},
    {"games", "Games"},
    {"social-networking", "Social Networking"},
    {"finance", "Finance"},
    {"medical", "Medical"},
    {"healthcare-fitness", "Health & Fitness"},
    {"lifestyle", "Lifestyle"},
    {"news", "News"},
    {"reference", "Reference"},
    {"weather", "Weather"},
    {"travel", "Travel"},
    {"sports", "Sports"},
    {"food-and-drink", "Food & Drink"},
    {"navigation", "Navigation"},
    {"books", "Books"},
}};

}  // namespace

std::string_view shortLabel(AppSortOrder order) {
    switch (order) {
        case AppSortOrder::sizeDesc: return "Largest";
        case AppSortOrder::sizeAsc: return "Smallest";
        case AppSortOrder::nameAsc: return "A–Z";
        case AppSortOrder::nameDesc: return "Z–A";
        case AppSortOrder::forgotten: return "Least used";
        case AppSortOrder::recent: return "Most used";
    }
    return {};
}

AppSortOrder appSortOrderFromLegacyKey(std::string_view key) {
    if (key == "sizeAsc") return AppSortOrder::sizeAsc;
    if (key == "nameAsc") return AppSortOrder::nameAsc;
    if (key == "nameDesc") return AppSortOrder::nameDesc;
    if (key == "forgotten") return AppSortOrder::forgotten;
    return fromRawValue<AppSortOrder>(key).value_or(AppSortOrder::sizeDesc);
}

std::string_view toneName(AppUsageTone tone) {
    switch (tone) {
        case AppUsageTone::used: return "used";
        case AppUsageTone::quiet: return "quiet";
        case AppUsageTone::cold: return "cold";
    }
    return {};
}

std::int64_t AppVendorGroup::size() const {
    std::int64_t total = 0;
    for (const auto& app : apps) total += app.size;
    return total;
}

std::string AppListEntry::id() const {
    if (const auto* app = std::get_if<InstalledApp>(&value)) return "a:" + app->id;
    return "g:" + std::get<AppVendorGroup>(value).id;
}

std::string AppListRow::id() const {
    if (const auto* group = std::get_if<AppVendorGroup>(&value)) return "g:" + group->id;
    const auto& row = std::get<App>(value);
    return (row.grouped ? "ga:" : "a:") + row.app.id;
}

std::pair<int, TimePoint> appForgottenKey(const InstalledApp& app, const std::set<std::string>& running, TimePoint now) {
    if (isRunning(app, running)) return {3, kDistantPast};
    if (app.loginItem) return {2, kDistantPast};
    if (auto used = latestUse(app)) return {1, *used};
    if (app.installed && ageSeconds(*app.installed, now) < kThirtyDays) return {1, *app.installed};
    return {0, kDistantPast};
}

bool appIsUnused(const InstalledApp& app, const std::set<std::string>& running, TimePoint now) {
    if (isRunning(app, running) || app.loginItem) return false;
    if (auto used = latestUse(app)) return ageSeconds(*used, now) > kSixtyDays;
    if (!app.installed) return true;
    // Thirty days after installing, but sixty without use: a new app gets a shorter grace.
    return ageSeconds(*app.installed, now) >= kThirtyDays;
}

std::vector<InstalledApp> filterApps(const std::vector<InstalledApp>& apps, std::string_view search, AppShowFilter show,
                                     const std::set<std::string>& selected, const std::set<std::string>& running,
                                     TimePoint now) {
    const std::string_view query = trimSpacesAndTabs(search);
    std::vector<InstalledApp> kept;
    for (const auto& app : apps) {
        if (!query.empty() && !localizedCaseInsensitiveContains(app.name, query) &&
            !localizedCaseInsensitiveContains(app.bundleID, query))
            continue;
        const bool shown = show == AppShowFilter::all      ? true
                           : show == AppShowFilter::unused ? appIsUnused(app, running, now)
                                                           : selected.contains(app.id);
        if (shown) kept.push_back(app);
    }
    return kept;
}

std::vector<InstalledApp> sortApps(std::vector<InstalledApp> apps, AppSortOrder by, const std::set<std::string>& running,
                                   TimePoint now) {
    switch (by) {
        case AppSortOrder::sizeDesc:
            std::stable_sort(apps.begin(), apps.end(), [](const auto& a, const auto& b) { return a.size > b.size; });
            return apps;
        case AppSortOrder::sizeAsc:
            std::stable_sort(apps.begin(), apps.end(), [](const auto& a, const auto& b) { return a.size < b.size; });
            return apps;
        case AppSortOrder::nameAsc:
            std::stable_sort(apps.begin(), apps.end(),
                             [](const auto& a, const auto& b) { return localizedStandardCompare(a.name, b.name) < 0; });
            return apps;
        case AppSortOrder::nameDesc:
            std::stable_sort(apps.begin(), apps.end(),
                             [](const auto& a, const auto& b) { return localizedStandardCompare(a.name, b.name) > 0; });
            return apps;
        case AppSortOrder::forgotten:
        case AppSortOrder::recent: {
            std::vector<std::pair<std::pair<int, TimePoint>, InstalledApp>> keyed;
            for (auto& app : apps) keyed.emplace_back(appForgottenKey(app, running, now), std::move(app));
            std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
                if (a.first == b.first) return a.second.size > b.second.size;
                return a.first < b.first;
            });
            // Most used is the exact mirror, ties included: not a sort with its own tie-break.
            if (by == AppSortOrder::recent) std::reverse(keyed.begin(), keyed.end());
            apps.clear();
            for (auto& [key, app] : keyed) apps.push_back(std::move(app));
            return apps;
        }
    }
    return apps;
}

std::optional<AppGroupKey> appGroupKey(std::string_view appPath, std::string_view bundleID,
                                       const std::vector<std::string>& applicationsRoots) {
    for (std::string root : applicationsRoots) {
        if (!root.ends_with('/')) root += '/';
        if (!appPath.starts_with(root)) continue;
        const auto pieces = splitDroppingEmpties(appPath.substr(root.size()), '/');
        if (pieces.size() > 1) return AppGroupKey{"folder:" + root + pieces.front(), pieces.front()};
    }
    const auto pieces = splitDroppingEmpties(bundleID, '.');
    if (pieces.size() >= 3 && characterCount(pieces[1]) >= 2)
        return AppGroupKey{"vendor:" + lowercased(pieces[1]), prettyVendorName(pieces[1])};
    return std::nullopt;
}

std::vector<AppListEntry> groupedAppEntries(const std::vector<InstalledApp>& apps, AppSortOrder sort, bool grouping,
                                            const std::vector<std::string>& applicationsRoots,
                                            const std::set<std::string>& running, TimePoint now) {
    std::vector<AppListEntry> entries;
    if (!grouping) {
        for (auto& app : sortApps(apps, sort, running, now)) entries.push_back({std::move(app)});
        return entries;
    }
    std::vector<InstalledApp> loose;
    std::vector<std::string> keys;  // in the order first seen
    std::map<std::string, AppVendorGroup> groups;
    for (const auto& app : apps) {
        const auto key = appGroupKey(app.id, app.bundleID, applicationsRoots);
        if (!key) {
            loose.push_back(app);
            continue;
        }
        auto [group, fresh] = groups.try_emplace(key->key, AppVendorGroup{key->key, key->name, {}});
        if (fresh) keys.push_back(key->key);
        group->second.apps.push_back(app);
    }
    for (const auto& key : keys) {
        auto& group = groups.at(key);
        if (group.apps.size() < 2) {
            loose.push_back(group.apps.front());
            continue;
        }
        group.apps = sortApps(std::move(group.apps), sort, running, now);
        entries.push_back({std::move(group)});
    }
    for (auto& app : sortApps(std::move(loose), sort, running, now)) entries.push_back({std::move(app)});

    // With groups, use orders only the members: the top level goes by size, deliberately.
    std::stable_sort(entries.begin(), entries.end(), [&](const AppListEntry& a, const AppListEntry& b) {
        switch (sort) {
            case AppSortOrder::nameAsc: return localizedStandardCompare(entryName(a), entryName(b)) < 0;
            case AppSortOrder::nameDesc: return localizedStandardCompare(entryName(a), entryName(b)) > 0;
            case AppSortOrder::sizeAsc:
                if (entrySize(a) != entrySize(b)) return entrySize(a) < entrySize(b);
                return a.id() < b.id();
            default:
                if (entrySize(a) != entrySize(b)) return entrySize(a) > entrySize(b);
                return a.id() < b.id();
        }
    });
    return entries;
}

std::vector<AppListRow> flattenAppEntries(const std::vector<AppListEntry>& entries,
                                          const std::set<std::string>& collapsed) {
    std::vector<AppListRow> rows;
    for (const auto& entry : entries) {
        if (const auto* app = std::get_if<InstalledApp>(&entry.value)) {
            rows.push_back({AppListRow::App{*app, false}});
            continue;
        }
        const auto& group = std::get<AppVendorGroup>(entry.value);
        rows.push_back({group});
        if (collapsed.contains(group.id)) continue;
        for (const auto& app : group.apps) rows.push_back({AppListRow::App{app, true}});
    }
    return rows;
}

std::optional<InstalledApp> detailPanelApp(const std::optional<std::string>& selectedID,
                                           const std::vector<InstalledApp>& shown) {
    if (!selectedID) return std::nullopt;
    const auto found = std::find_if(shown.begin(), shown.end(), [&](const auto& app) { return app.id == *selectedID; });
    if (found == shown.end()) return std::nullopt;
    return *found;
}

std::optional<std::string> appVendorName(std::string_view bundleID) {
    const auto pieces = splitDroppingEmpties(bundleID, '.');
    if (pieces.size() >= 3 && characterCount(pieces[1]) >= 2) return prettyVendorName(pieces[1]);
    return std::nullopt;
}

std::string prettyVendorName(std::string_view name) {
    for (const auto& [key, display] : kVendorNames)
        if (key == name) return std::string(display);
    return uppercasedFirstCharacter(name);
}

std::optional<std::string> prettyAppCategory(std::string_view category) {
    constexpr std::string_view prefix = "public.app-category.";
    if (!category.starts_with(prefix) || category.size() == prefix.size()) return std::nullopt;
    const std::string_view slug = category.substr(prefix.size());
    for (const auto& [key, display] : kCategories)
        if (key == slug) return std::string(display);
    if (slug.find('-') == std::string_view::npos && slug.find('.') != std::string_view::npos) return std::nullopt;
    std::string pretty;
    for (const auto& piece : splitDroppingEmpties(slug, '-')) {
        if (!pretty.empty()) pretty += ' ';
        pretty += uppercasedFirstCharacter(piece);
    }
    return pretty;
}

std::optional<std::string> appVersionLine(const std::optional<std::string>& shortVersion,
                                          const std::optional<std::string>& build) {
    if (!shortVersion || shortVersion->empty()) return std::nullopt;
    if (build && !build->empty() && *build != *shortVersion) return *shortVersion + " (" + *build + ")";
    return *shortVersion;
}

std::optional<AppUsageChip> appUsageChip(const InstalledApp& app, bool running, TimePoint now) {
    // The system's own record of use decides alone.
    if (app.lastUsed) {
        const auto days = ageDays(*app.lastUsed, now);
        if (days < 30) return std::nullopt;
        if (days < 180) return AppUsageChip{"Unused " + std::to_string(days) + " days", AppUsageTone::cold};
        return AppUsageChip{"Unused " + std::to_string(days / 30) + " months", AppUsageTone::cold};
    }
    if (running) return AppUsageChip{"Running now", AppUsageTone::used};
    if (app.loginItem) return AppUsageChip{"Starts automatically", AppUsageTone::used};
    if (!app.activity) {
        if (app.installed && ageDays(*app.installed, now) < 30) return AppUsageChip{"Recently installed", AppUsageTone::quiet};
        return AppUsageChip{"Cold — no signals", AppUsageTone::cold};
    }
    const auto days = ageDays(*app.activity, now);
    if (days == 0) return AppUsageChip{"Active today", AppUsageTone::used};
    if (days < 30) return AppUsageChip{"Active " + std::to_string(days) + "d ago", AppUsageTone::used};
    if (days < 180) return AppUsageChip{"Quiet " + std::to_string(days) + " days", AppUsageTone::quiet};
    return AppUsageChip{"Cold " + std::to_string(days / 30) + " months", AppUsageTone::cold};
}

std::optional<AppUsageChipShort> appUsageChipShort(const InstalledApp& app, bool running, TimePoint now) {
    const auto chip = appUsageChip(app, running, now);
    if (!chip) return std::nullopt;
    const auto span = [](std::int64_t days) {
        return days < 365 ? std::to_string(days / 30) + " mo" : std::to_string(days / 365) + " yr";
    };
    std::string shortText;
    if (app.lastUsed) {
        const auto days = ageDays(*app.lastUsed, now);
        shortText = days < 180 ? "Unused " + std::to_string(days) + "d" : "Unused " + span(days);
    } else if (running) {
        shortText = "Running";
    } else if (app.loginItem) {
        shortText = "Auto-starts";
    } else if (!app.activity) {
        shortText = chip->text == "Recently installed" ? "New" : "Cold";
    } else {
        const auto days = ageDays(*app.activity, now);
        shortText = days == 0    ? std::string("Active today")
                    : days < 30  ? "Active " + std::to_string(days) + "d"
                    : days < 180 ? "Quiet " + std::to_string(days) + "d"
                                 : "Cold " + span(days);
    }
    return AppUsageChipShort{shortText, chip->text, chip->tone};
}

std::string countedNoun(std::int64_t count, std::string_view singular, const std::optional<std::string>& plural) {
    const std::string noun = count == 1 ? std::string(singular) : plural.value_or(std::string(singular) + "s");
    return std::to_string(count) + " " + noun;
}

AppsDetailLayout appsDetailLayout(double contentWidth, bool panelHidden) {
    const double panel = contentWidth >= 1000 ? 280 : 250;
    AppsDetailLayout layout;
    if (!panelHidden) layout.panelWidth = panel;
    layout.listWidth = panelHidden ? contentWidth : contentWidth - panel - 1;
    layout.compactRows = layout.listWidth < 500;
    layout.runningLabel = layout.listWidth >= 640;
    return layout;
}

std::vector<std::string> visibleListNames(const std::vector<std::string>& names, bool expanded) {
    if (!expanded && names.size() > listFoldThreshold)
        return {names.begin(), names.begin() + static_cast<std::ptrdiff_t>(listFoldShown)};
    return names;
}

WindowSize clampedWindowMinimum(double width, double height, double visibleWidth, double visibleHeight) {
    return {std::min(width, std::max(visibleWidth, 0.0)), std::min(height, std::max(visibleHeight, 0.0))};
}

std::optional<WindowSize> enlargedToMinimum(const std::optional<WindowSize>& size, double minWidth, double minHeight) {
    if (!size) return std::nullopt;
    return WindowSize{size->width <= minWidth ? minWidth : size->width,
                      size->height <= minHeight ? minHeight : size->height};
}

}  // namespace orvane
