// What a package installer left outside an app's bundle, read from the receipts pkgutil keeps, so
// that removing the app can offer those files too.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

inline constexpr const char* kPkgutilTool = "/usr/sbin/pkgutil";

inline constexpr std::array<std::string_view, 3> installerReceiptFolders = {
    "/var/db/receipts", "/private/var/db/receipts", "/Library/Receipts"};
// Per package: a receipt that names more than this is a system component, not an app's extras.
inline constexpr std::size_t installerLeftoverRowLimit = 50;

// Lower case. Folders many packages install into, which no single package can be said to own.
bool isSharedReceiptFolderName(std::string_view lowercasedName);

// Where a package installs: `volume` is never empty.
struct PkgInstallPlace {
    std::string volume = "/";
    std::string location;
    bool operator==(const PkgInstallPlace&) const = default;
};

// The package identifiers of `pkgutil --file-info`, in order; none for a path no package owns.
std::vector<std::string> parsePkgFileInfo(std::string_view text);
// The place of `pkgutil --pkg-info`; the last line of each kind wins.
PkgInstallPlace parsePkgInfo(std::string_view text);
// A receipt's file as an absolute path: "/", "Applications", "./Foo.app" gives "/Applications/Foo.app".
std::string receiptAbsolutePath(std::string_view volume, std::string_view location, std::string_view file);

// The topmost of `receiptPaths` that this package alone accounts for, sorted, at most `limit`.
// Never the app's own bundle, nothing in `home` or in any other bundle, no folder near the root or
// shared by many packages, and no folder holding anything the receipt does not name (Finder's own
// files aside). A folder that cannot be listed is not owned.
std::vector<std::string> receiptLeftovers(
    const std::vector<std::string>& receiptPaths, std::string_view appPath, std::string_view home,
    const std::function<bool(const std::string&)>& exists, const std::function<bool(const std::string&)>& isDirectory,
    const std::function<std::optional<std::vector<std::string>>(const std::string&)>& list, std::size_t limit);

// Whether the path is one of the folders that keep receipts, or inside one (case ignored).
bool isInstallerReceiptPath(std::string_view path);

struct ReceiptLeftover {
    std::string path;
    std::string packageID;
    bool operator==(const ReceiptLeftover&) const = default;
};

namespace InstallerReceipts {

// The packages that installed the app; none when pkgutil fails or knows none.
std::vector<std::string> packages(const std::string& forApp, const Facts& facts = Facts::real());
// The leftovers of the app's first five packages, each path once, with the first package that
// named it. Runs pkgutil up to eleven times: never on an interactive thread.
std::vector<ReceiptLeftover> leftovers(const std::string& forApp, const std::string& home,
                                       const Facts& facts = Facts::real());

}  // namespace InstallerReceipts

}  // namespace orvane
