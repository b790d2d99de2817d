#include "core/apps/app_list.hpp"

#include <gtest/gtest.h>

#include "core/common/text.hpp"

namespace orvane {
namespace {

const TimePoint kNow = Clock::from_time_t(1'700'000'000);
TimePoint daysAgo(int days) { return kNow - std::chrono::seconds(std::int64_t{days} * 86'400); }

InstalledApp app(std::string id, std::string bundleID, std::int64_t size) {
    InstalledApp a;
    a.name = id.substr(id.rfind('/') + 1);
    a.name = a.name.substr(0, a.name.size() - 4);
    a.id = std::move(id);
    a.bundleID = std::move(bundleID);
    a.size = size;
    return a;
}

std::vector<std::string> ids(const std::vector<AppListRow>& rows) {
    std::vector<std::string> out;
    for (const auto& row : rows) out.push_back(row.id());
    return out;
}

TEST(AppList, UseAndItsSignals) {
    InstalledApp plain = app("/Applications/A.app", "", 1);
    const std::set<std::string> running = {"", "com.x.y"};
    EXPECT_EQ(appForgottenKey(plain, running, kNow).first, 0);  // an empty id is never running
    EXPECT_TRUE(appIsUnused(plain, running, kNow));
    plain.installed = daysAgo(29);
    EXPECT_FALSE(appIsUnused(plain, {}, kNow));
    plain.activity = daysAgo(59);
    EXPECT_FALSE(appIsUnused(plain, {}, kNow));
    plain.activity = daysAgo(61);
    EXPECT_TRUE(appIsUnused(plain, {}, kNow));

    struct Case {
        std::optional<int> lastUsed, activity, installed;
        bool running, loginItem;
        std::optional<std::string> text, shortText;
    };
    const Case cases[] = {
        {10, {}, {}, true, false, {}, {}},  // the system's record decides, even while running
        {45, {}, {}, false, false, "Unused 45 days", "Unused 45d"},
        {400, {}, {}, false, false, "Unused 13 months", "Unused 1 yr"},
        {200, {}, {}, false, false, "Unused 6 months", "Unused 6 mo"},
        {{}, {}, {}, true, true, "Running now", "Running"},
        {{}, {}, {}, false, true, "Starts automatically", "Auto-starts"},
        {{}, {}, 3, false, false, "Recently installed", "New"},
        {{}, {}, 40, false, false, "Cold — no signals", "Cold"},
        {{}, 0, {}, false, false, "Active today", "Active today"},
        {{}, 12, {}, false, false, "Active 12d ago", "Active 12d"},
        {{}, 90, {}, false, false, "Quiet 90 days", "Quiet 90d"},
        {{}, 730, {}, false, false, "Cold 24 months", "Cold 2 yr"},
    };
    for (const auto& c : cases) {
        InstalledApp a = app("/Applications/B.app", "com.b.b", 1);
        if (c.lastUsed) a.lastUsed = daysAgo(*c.lastUsed);
        if (c.activity) a.activity = daysAgo(*c.activity);
        if (c.installed) a.installed = daysAgo(*c.installed);
        a.loginItem = c.loginItem;
        const auto chip = appUsageChip(a, c.running, kNow);
        const auto shortChip = appUsageChipShort(a, c.running, kNow);
        EXPECT_EQ(chip ? std::optional(chip->text) : std::nullopt, c.text);
        EXPECT_EQ(shortChip ? std::optional(shortChip->shortText) : std::nullopt, c.shortText);
    }
}

TEST(AppList, SortsAreStableAndRecentMirrorsForgotten) {
    auto a = app("/Applications/App 10.app", "com.a.a", 5);
    auto b = app("/Applications/app 9.app", "com.b.b", 5);
    auto c = app("/Applications/C.app", "com.c.c", 7);
    auto d = app("/Applications/D.app", "com.d.d", 1);
    c.activity = daysAgo(5);
    d.activity = daysAgo(50);
    const std::vector<InstalledApp> apps = {a, b, c, d};
    auto names = [](const std::vector<InstalledApp>& sorted) {
        std::vector<std::string> out;
        for (const auto& x : sorted) out.push_back(x.name);
        return out;
    };
    EXPECT_EQ(names(sortApps(apps, AppSortOrder::nameAsc, {}, kNow)),
              (std::vector<std::string>{"app 9", "App 10", "C", "D"}));
    EXPECT_EQ(names(sortApps(apps, AppSortOrder::sizeDesc, {}, kNow)),
              (std::vector<std::string>{"C", "App 10", "app 9", "D"}));
    // Equal keys (tier 0) go larger first; then the older activity of tier 1.
    const auto forgotten = names(sortApps(apps, AppSortOrder::forgotten, {}, kNow));
    EXPECT_EQ(forgotten, (std::vector<std::string>{"App 10", "app 9", "D", "C"}));
    auto recent = names(sortApps(apps, AppSortOrder::recent, {}, kNow));
    std::reverse(recent.begin(), recent.end());
    EXPECT_EQ(recent, forgotten);

    EXPECT_EQ(appSortOrderFromLegacyKey("forgotten"), AppSortOrder::forgotten);
    EXPECT_EQ(appSortOrderFromLegacyKey("Name — Z to A"), AppSortOrder::nameDesc);
    EXPECT_EQ(appSortOrderFromLegacyKey("sizeDesc?"), AppSortOrder::sizeDesc);

    EXPECT_EQ(filterApps(apps, "  APP ", AppShowFilter::all, {}, {}, kNow).size(), 2u);
    EXPECT_EQ(filterApps(apps, "com.c", AppShowFilter::all, {}, {}, kNow).size(), 1u);
    EXPECT_EQ(filterApps(apps, "", AppShowFilter::selected, {"/Applications/D.app"}, {}, kNow).size(), 1u);
}

TEST(AppList, GroupsByFolderThenVendor) {
    const std::vector<std::string> roots = {"/Applications", "/Users/amy/Applications/"};
    const std::vector<InstalledApp> apps = {
        app("/Applications/Word.app", "com.microsoft.Word", 10),
        app("/Applications/Excel.app", "com.microsoft.Excel", 20),
        app("/Applications/Tools/Teams.app", "com.microsoft.teams2", 1),
        app("/Applications/Tools/Other.app", "org.other.tool", 2),
        app("/Users/amy/Applications/Lone/Lone.app", "io.x.lone", 100),
        app("/Applications/Short.app", "ab.c", 4),
    };
    EXPECT_EQ(appGroupKey(apps[0].id, apps[0].bundleID, roots), (AppGroupKey{"vendor:microsoft", "Microsoft"}));
    EXPECT_EQ(appGroupKey(apps[2].id, apps[2].bundleID, roots), (AppGroupKey{"folder:/Applications/Tools", "Tools"}));
    EXPECT_EQ(appGroupKey("/x/A.app", "com.a.b", roots), std::nullopt);  // a one-letter vendor is none
    EXPECT_EQ(appVendorName("com.x"), std::nullopt);
    EXPECT_EQ(appVendorName("com.nativeinstruments.x"), "Native Instruments");

    const auto entries = groupedAppEntries(apps, AppSortOrder::sizeDesc, true, roots, {}, kNow);
    // A key one app alone has is no group; groups and singles are ordered by size together.
    EXPECT_EQ(ids(flattenAppEntries(entries, {"folder:/Applications/Tools"})),
              (std::vector<std::string>{"a:/Users/amy/Applications/Lone/Lone.app", "g:vendor:microsoft",
                                        "ga:/Applications/Excel.app", "ga:/Applications/Word.app",
                                        "a:/Applications/Short.app", "g:folder:/Applications/Tools"}));
    const auto byName = groupedAppEntries(apps, AppSortOrder::nameAsc, true, roots, {}, kNow);
    EXPECT_EQ(byName.front().id(), "a:/Users/amy/Applications/Lone/Lone.app");
    EXPECT_EQ(byName.back().id(), "g:folder:/Applications/Tools");
}

TEST(AppList, LabelsAndLayout) {
    EXPECT_EQ(prettyAppCategory("public.app-category.graphics-design"), "Graphics & Design");
    EXPECT_EQ(prettyAppCategory("public.app-category.foo-bar"), "Foo Bar");
    EXPECT_EQ(prettyAppCategory("public.app-category.foo"), "Foo");
    EXPECT_EQ(prettyAppCategory("public.app-category.foo.bar"), std::nullopt);
    EXPECT_EQ(prettyAppCategory("public.app-category."), std::nullopt);
    EXPECT_EQ(appVersionLine("2.1", "2104"), "2.1 (2104)");
    EXPECT_EQ(appVersionLine("2.1", "2.1"), "2.1");
    EXPECT_EQ(appVersionLine("", "5"), std::nullopt);
    EXPECT_EQ(countedNoun(0, "app"), "0 apps");
    EXPECT_EQ(countedNoun(1, "box", "boxes"), "1 box");
    EXPECT_EQ(appsDetailLayout(1000, false), (AppsDetailLayout{280, 719, false, true}));
    EXPECT_EQ(appsDetailLayout(999, false).listWidth, 748);
    EXPECT_EQ(appsDetailLayout(480, true), (AppsDetailLayout{std::nullopt, 480, true, false}));
    EXPECT_EQ(visibleListNames(std::vector<std::string>(12, "x"), false).size(), 12u);
    EXPECT_EQ(visibleListNames(std::vector<std::string>(13, "x"), false).size(), 8u);
    EXPECT_EQ(clampedWindowMinimum(900, 700, 800, -5), (WindowSize{800, 0}));
    EXPECT_EQ(enlargedToMinimum(WindowSize{480, 900}, 480, 600), (WindowSize{480, 900}));
    EXPECT_TRUE(localizedCaseInsensitiveContains("Straße", "STRASSE"));
    EXPECT_LT(localizedStandardCompare("File 007", "file 10"), 0);
}

}  // namespace
}  // namespace orvane
