// The logic of the applications list: searching, filtering by use, sorting, grouping by vendor or
// folder, flattening into rows, labelling how much each app is used, and the page's layout
// arithmetic. The apps, the running identifiers and the time are handed in; nothing reads the disk.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

struct InstalledApp {
    std::string id;  // the app's absolute path
    std::string name;
    std::string bundleID;  // may be empty
    std::int64_t size = 0;
    std::optional<TimePoint> lastUsed;
    bool loginItem = false;
    std::optional<TimePoint> activity;  // the newest sign of activity in the app's data
    std::optional<TimePoint> installed;
    bool operator==(const InstalledApp&) const = default;
};

enum class AppSortOrder { sizeDesc, sizeAsc, nameAsc, nameDesc, forgotten, recent };
template <>
struct RawValues<AppSortOrder> {
    static constexpr std::array<std::pair<AppSortOrder, std::string_view>, 6> table = {{
        {AppSortOrder::sizeDesc, "Size — largest first"},
        {AppSortOrder::sizeAsc, "Size — smallest first"},
        {AppSortOrder::nameAsc, "Name — A to Z"},
        {AppSortOrder::nameDesc, "Name — Z to A"},
        {AppSortOrder::forgotten, "Least recently used"},
        {AppSortOrder::recent, "Most recently used"},
    }};
};
// The label of a narrow control.
std::string_view shortLabel(AppSortOrder order);
// A stored preference of an older version, or a raw value; anything else is sizeDesc.
AppSortOrder appSortOrderFromLegacyKey(std::string_view key);

enum class AppShowFilter { all, unused, selected };
template <>
struct RawValues<AppShowFilter> {
    static constexpr std::array<std::pair<AppShowFilter, std::string_view>, 3> table = {{
        {AppShowFilter::all, "All apps"},
        {AppShowFilter::unused, "Unused only"},
        {AppShowFilter::selected, "Selected only"},
    }};
};

enum class AppUsageTone { used, quiet, cold };
std::string_view toneName(AppUsageTone tone);

struct AppVendorGroup {
    std::string id;  // the group key
    std::string name;
    std::vector<InstalledApp> apps;
    std::int64_t size() const;
    bool operator==(const AppVendorGroup&) const = default;
};

struct AppListEntry {
    std::variant<InstalledApp, AppVendorGroup> value;  // a single app, or a group
    std::string id() const;                             // "a:" + app id, or "g:" + group id
    bool operator==(const AppListEntry&) const = default;
};

struct AppListRow {
    struct App {
        InstalledApp app;
        bool grouped = false;
        bool operator==(const App&) const = default;
    };
    std::variant<AppVendorGroup, App> value;
    std::string id() const;  // "g:" + group id; "ga:" or "a:" + app id
    bool operator==(const AppListRow&) const = default;
};

struct AppsDetailLayout {
    std::optional<double> panelWidth;  // none while the panel is hidden
    double listWidth = 0;
    bool compactRows = false;
    bool runningLabel = false;
    bool operator==(const AppsDetailLayout&) const = default;
};

inline constexpr double appsListMinWidth = 480.0;
inline constexpr std::size_t listFoldThreshold = 12;
inline constexpr std::size_t listFoldShown = 8;

// A higher tier is more in use; within tier 1 an older date is more forgotten.
std::pair<int, TimePoint> appForgottenKey(const InstalledApp& app, const std::set<std::string>& running, TimePoint now);
bool appIsUnused(const InstalledApp& app, const std::set<std::string>& running, TimePoint now);

std::vector<InstalledApp> filterApps(const std::vector<InstalledApp>& apps, std::string_view search, AppShowFilter show,
                                     const std::set<std::string>& selected, const std::set<std::string>& running,
                                     TimePoint now);
// Stable: apps that compare equal keep their order.
std::vector<InstalledApp> sortApps(std::vector<InstalledApp> apps, AppSortOrder by,
                                   const std::set<std::string>& running, TimePoint now);
std::vector<AppListEntry> groupedAppEntries(const std::vector<InstalledApp>& apps, AppSortOrder sort, bool grouping,
                                            const std::vector<std::string>& applicationsRoots,
                                            const std::set<std::string>& running, TimePoint now);
std::vector<AppListRow> flattenAppEntries(const std::vector<AppListEntry>& entries,
                                          const std::set<std::string>& collapsed);
std::optional<InstalledApp> detailPanelApp(const std::optional<std::string>& selectedID,
                                           const std::vector<InstalledApp>& shown);

struct AppGroupKey {
    std::string key;
    std::string name;
    bool operator==(const AppGroupKey&) const = default;
};
// A subfolder of an applications root first, then the vendor of a bundle identifier.
std::optional<AppGroupKey> appGroupKey(std::string_view appPath, std::string_view bundleID,
                                       const std::vector<std::string>& applicationsRoots);
std::optional<std::string> appVendorName(std::string_view bundleID);
std::string prettyVendorName(std::string_view name);

// "public.app-category.graphics-design" gives "Graphics & Design".
std::optional<std::string> prettyAppCategory(std::string_view category);
// "2.1 (2104)", or "2.1" when the build says nothing more.
std::optional<std::string> appVersionLine(const std::optional<std::string>& shortVersion,
                                          const std::optional<std::string>& build);

struct AppUsageChip {
    std::string text;
    AppUsageTone tone = AppUsageTone::used;
    bool operator==(const AppUsageChip&) const = default;
};
std::optional<AppUsageChip> appUsageChip(const InstalledApp& app, bool running, TimePoint now);
struct AppUsageChipShort {
    std::string shortText;
    std::string full;
    AppUsageTone tone = AppUsageTone::used;
    bool operator==(const AppUsageChipShort&) const = default;
};
std::optional<AppUsageChipShort> appUsageChipShort(const InstalledApp& app, bool running, TimePoint now);

// "1 app", "0 apps", "3 boxes" (with the plural given).
std::string countedNoun(std::int64_t count, std::string_view singular,
                        const std::optional<std::string>& plural = std::nullopt);

AppsDetailLayout appsDetailLayout(double contentWidth, bool panelHidden);
std::vector<std::string> visibleListNames(const std::vector<std::string>& names, bool expanded);

struct WindowSize {
    double width = 0;
    double height = 0;
    bool operator==(const WindowSize&) const = default;
};
WindowSize clampedWindowMinimum(double width, double height, double visibleWidth, double visibleHeight);
std::optional<WindowSize> enlargedToMinimum(const std::optional<WindowSize>& size, double minWidth, double minHeight);

}  // namespace orvane
