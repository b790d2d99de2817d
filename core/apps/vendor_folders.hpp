// Support folders named after an app's vendor rather than the app ("Application Support/Vendor/
// App"): which of their files and subfolders go with the app when it is removed, without taking
// the data of the vendor's other products, and which of them start ticked.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// Words that are never a vendor, lower case.
inline constexpr std::array<std::string_view, 11> vendorFolderDenyList = {
    "apple", "org", "com", "net", "app", "apps", "mac", "osx", "the", "system", "library",
};

// What the Finder makes in a folder by itself.
inline constexpr std::array<std::string_view, 3> finderOwnFolderFiles = {".DS_Store", "Icon\r", ".localized"};

inline constexpr std::string_view activationDataUninstallNote =
    "Holds this product's LICENCE, not its data — removing it can de-authorise the software. Left unticked "
    "deliberately; only include it if you're done with the product for good.";

// What an app's names allow.
struct VendorNameRule {
    std::vector<std::string> vendors;       // possible vendor folder names, case kept
    std::vector<std::string> strongTokens;  // lower case: names that can only mean this app
    std::vector<std::string> tokens;        // lower case: strongTokens and weaker ones

    bool isVendorFolder(std::string_view name) const;
    bool namedByThisApp(std::string_view name) const;
    bool ownedNameInSharedDirectory(std::string_view name) const;
    bool operator==(const VendorNameRule&) const = default;
};

// One row of a Library folder's listing.
struct VendorFolderEntry {
    std::string name;
    bool isDirectory = false;
    std::vector<std::string> children;  // child names of a directory
    bool operator==(const VendorFolderEntry&) const = default;
};

struct VendorFolderPick {
    std::string relativePath;  // relative to the listed directory
    bool on = false;           // whether it starts ticked
    std::string note;
    bool operator==(const VendorFolderPick&) const = default;
};

VendorNameRule vendorNameRule(std::string_view appName, std::string_view bundleID);

// What of one listing of `directory` goes with the app, in the entries' order.
std::vector<VendorFolderPick> vendorFolderPlan(std::string_view appName, std::string_view bundleID,
                                               std::string_view directory,
                                               const std::vector<VendorFolderEntry>& entries);

struct UninstallRowState {
    bool on = false;
    std::string note;
    bool operator==(const UninstallRowState&) const = default;
};
// Activation data is never ticked, whatever was asked.
UninstallRowState uninstallRow(std::string_view path, bool requestedOn, std::string_view note);

// Every child is the Finder's own or in `ignoring`, compared exactly; an empty list is true.
bool folderHoldsOnlyFinderFiles(const std::vector<std::string>& children, const std::vector<std::string>& ignoring);

// Only a plain folder in /Applications, at any depth: never a bundle or inside one, never Utilities.
bool isRemovableVendorFolder(std::string_view path);

// The folder that held a removed app, when it is a plain folder directly in one of
// `applicationsRoots` and what `remaining` in it is only the Finder's.
std::optional<std::string> emptiedVendorFolder(std::string_view appPath,
                                               const std::vector<std::string>& applicationsRoots,
                                               const std::vector<std::string>& remaining);

}  // namespace orvane
