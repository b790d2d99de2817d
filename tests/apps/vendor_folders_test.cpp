// Vendor folders: what an app's names claim, what of a vendor's folder goes with the app, and
// which folders in /Applications may go once emptied.
#include "core/apps/vendor_folders.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using Strings = std::vector<std::string>;

TEST(VendorFolders, NameRuleTakesVendorsAndTokensFromBothNames) {
    struct Case {
        const char* appName;
        const char* bundleID;
        Strings vendors, strongTokens, tokens;
    };
    const Case cases[] = {
        {"Acme Tool", "com.acme.tool", {"acme", "Acme"}, {"acme tool", "acmetool", "tool"}, {"acme tool", "acmetool", "tool"}},
        {"Acme Studio", "com.acme.x", {"acme", "Acme"}, {"acme studio", "acmestudio"}, {"acme studio", "acmestudio", "studio"}},
        {"Apple Thing", "com.abc.thing", {}, {"apple thing", "applething", "thing"}, {"apple thing", "applething", "thing"}},
        // Three characters in five bytes: too short to be a vendor.
        {"Büro", "com.äbc..x", {}, {"büro"}, {"büro"}},
        {"Büro Max", "..com..Büro.x", {"Büro", "Büro"}, {"büro max", "büromax"}, {"büro max", "büromax"}},
    };
    for (const auto& c : cases) {
        const auto rule = vendorNameRule(c.appName, c.bundleID);
        EXPECT_EQ(rule.vendors, c.vendors) << c.appName << " / " << c.bundleID;
        EXPECT_EQ(rule.strongTokens, c.strongTokens) << c.appName << " / " << c.bundleID;
        EXPECT_EQ(rule.tokens, c.tokens) << c.appName << " / " << c.bundleID;
    }

    const auto rule = vendorNameRule("Acme Studio", "com.acme.x");
    EXPECT_TRUE(rule.isVendorFolder("ACME"));
    EXPECT_FALSE(rule.isVendorFolder("Acme Studio"));
    EXPECT_TRUE(rule.namedByThisApp("Studio.plist"));
    EXPECT_FALSE(rule.ownedNameInSharedDirectory("Studio.plist"));
    EXPECT_FALSE(rule.ownedNameInSharedDirectory("acmestudiox"));
}

TEST(VendorFolders, PlanTakesTheFolderOnlyWhenAllOfItIsTheApps) {
    const std::string support = "/Users/u/Library/Application Support";
    struct Case {
        const char* what;
        const char* appName;
        const char* bundleID;
        std::vector<VendorFolderEntry> entries;
        std::vector<VendorFolderPick> picks;
    };
    const Case cases[] = {
        {"only the app's data", "Acme Tool", "com.acme.tool",
         {{"Acme", true, {"Tool", ".DS_Store"}}},
         {{"Acme", true, "Vendor folder — holds only Acme Tool's data"}}},
        {"shared with another product", "Acme Tool", "com.acme.tool",
         {{"acme", true, {"Tool", "Other"}}},
         {{"acme/Tool", true, "Vendor-folder data"}}},
        {"nothing of the app's, or not a vendor's", "Acme Tool", "com.acme.tool",
         {{"Acme", true, {"Other"}}, {"Tool", true, {"Tool"}}}, {}},
        {"files in the shared folder", "Acme Tool", "com.acme.tool",
         {{"tool.plist", false, {}}, {"toolbox", false, {}}, {".DS_Store", false, {}}, {"", true, {}}},
         {{"tool.plist", true, "App-named settings file"}}},
        {"the last word claims inside the vendor's folder only", "Acme Studio", "com.acme.x",
         {{"Studio.plist", false, {}}, {"Acme", true, {"Studio", "studio.cache"}}},
         {{"Acme", true, "Vendor folder — holds only Acme Studio's data"}}},
        // The licence is this app's own, and the folder holds nothing else: still only the kid,
        // so that the row for it can be left unticked.
        {"a licence keeps the folder", "Acme Ilok", "com.acme.ilok",
         {{"Acme", true, {"Ilok"}}},
         {{"Acme/Ilok", true, "Vendor-folder data"}}},
        {"nothing to go on", "", "", {{"Acme", true, {"Acme"}}}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(vendorFolderPlan(c.appName, c.bundleID, support, c.entries), c.picks) << c.what;

    EXPECT_EQ(uninstallRow(support + "/Acme/Ilok", true, "Vendor-folder data"),
              (UninstallRowState{false, std::string(activationDataUninstallNote)}));
    EXPECT_EQ(uninstallRow(support + "/Acme/Tool", true, "Vendor-folder data"),
              (UninstallRowState{true, "Vendor-folder data"}));
}

TEST(VendorFolders, OnlyPlainFoldersInApplicationsMayGo) {
    const std::pair<const char*, bool> removable[] = {
        {"/Applications/Acme", true},           {"/Applications//Acme/Sub/", true},
        {"/Applications/Foo.app/Contents", false}, {"/Applications/Acme/Tool.app", false},
        {"/Applications/Utilities/Acme", false}, {"/Applications/", false},
        {"/Applications", false},               {"/Users/u/Applications/Acme", false},
        {"/Applications/Acme/../Foo.app", false},
    };
    for (const auto& [path, expected] : removable) EXPECT_EQ(isRemovableVendorFolder(path), expected) << path;

    EXPECT_TRUE(folderHoldsOnlyFinderFiles({".DS_Store", "Icon\r", ".localized"}, {}));
    EXPECT_TRUE(folderHoldsOnlyFinderFiles({".DS_Store", "Tool.app"}, {"Tool.app"}));
    EXPECT_FALSE(folderHoldsOnlyFinderFiles({".ds_store"}, {}));
    EXPECT_FALSE(folderHoldsOnlyFinderFiles({"Icon"}, {"tool.app"}));

    const Strings roots = {"/Applications/", "/Users/u/Applications"};
    struct Case {
        const char* appPath;
        Strings remaining;
        std::optional<std::string> folder;
    };
    const Case cases[] = {
        {"/Applications/Acme/Tool.app", {".DS_Store"}, "/Applications/Acme"},
        {"/Users/u/Applications/Acme/Tool.app", {}, "/Users/u/Applications/Acme"},
        {"/Applications/Tool.app", {}, std::nullopt},
        {"/Applications/Utilities/Tool.app", {}, std::nullopt},
        {"/Applications/UTILITIES/Tool.app", {}, std::nullopt},
        {"/Applications/Acme/Sub/Tool.app", {}, std::nullopt},
        {"/Applications/Acme/Tool.app", {".DS_Store", "Other.app"}, std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(emptiedVendorFolder(c.appPath, roots, c.remaining), c.folder) << c.appPath;
}

}  // namespace
}  // namespace orvane
