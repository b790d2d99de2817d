#include "core/apps/installer_receipts.hpp"

#include <algorithm>
#include <map>
#include <set>

#include "core/apps/finder_only_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {
namespace {

// clang-format off
constexpr std::array<std::string_view, 56> kSharedReceiptFolderNames = {
    "applications", "library", "application support", "preferences", "caches", "logs", "launchagents",
    "launchdaemons", "privilegedhelpertools", "extensions", "frameworks", "audio", "plug-ins", "components", "vst",
    "vst3", "mas", "aax", "hal", "midi drivers", "fonts", "internet plug-ins", "quicklook", "spotlight", "services",
    "preferencepanes", "screen savers", "contextual menu items", "printers", "filesystems", "staged extensions", "usr",
    "local", "bin", "sbin", "lib", "libexec", "share", "include", "etc", "opt", "var", "private", "system", "users",
    "documentation", "man", "man1", "receipts", "security", "keychains", "colorsync", "profiles", "webserver",
    "scripts", "sandbox"};
// clang-format on

constexpr double kFileInfoSeconds = 15;
constexpr double kPkgInfoSeconds = 15;
constexpr double kFilesSeconds = 30;
// An app that many packages claim is part of something larger; the first few tell enough.
constexpr std::size_t kPackagesRead = 5;

// Lines trimmed of spaces and tabs; pkgutil pads its values and blank lines carry nothing.
std::vector<std::string_view> trimmedLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) lines.push_back(trimSpacesAndTabs(text.substr(start, end - start)));
        start = end + 1;
    }
    return lines;
}


}  // namespace

bool isSharedReceiptFolderName(std::string_view lowercasedName) {
    return std::find(kSharedReceiptFolderNames.begin(), kSharedReceiptFolderNames.end(), lowercasedName) !=
           kSharedReceiptFolderNames.end();
}

std::vector<std::string> parsePkgFileInfo(std::string_view text) {
    std::vector<std::string> ids;
    for (const auto line : trimmedLines(text)) {
        if (!line.starts_with("pkgid: ") && !line.starts_with("package-id: ")) continue;
        const auto id = trimSpacesAndTabs(line.substr(line.find(':') + 1));
        if (!id.empty()) ids.emplace_back(id);
    }
    return ids;
}

PkgInstallPlace parsePkgInfo(std::string_view text) {
    PkgInstallPlace place;
    for (const auto line : trimmedLines(text)) {
        if (line.starts_with("volume: "))
            place.volume = line.substr(8);
        else if (line.starts_with("location: "))
            place.location = line.substr(10);
    }
    if (place.volume.empty()) place.volume = "/";
    return place;
}

std::string receiptAbsolutePath(std::string_view volume, std::string_view location, std::string_view file) {
    std::string path;
    for (const auto part : {volume, location, file})
        for (const auto& piece : pathComponents(part))
            if (piece != ".") path += "/" + piece;
    if (path.empty()) path = "/";
    return path;
}

std::vector<std::string> receiptLeftovers(
    const std::vector<std::string>& receiptPaths, std::string_view appPath, std::string_view home,
    const std::function<bool(const std::string&)>& exists, const std::function<bool(const std::string&)>& isDirectory,
    const std::function<std::optional<std::vector<std::string>>(const std::string&)>& list, std::size_t limit) {
    std::string_view app = appPath;
    if (app.ends_with('/')) app.remove_suffix(1);
    const std::set<std::string> named(receiptPaths.begin(), receiptPaths.end());
    std::map<std::string, bool> memo;

    std::function<bool(const std::string&)> owned = [&](const std::string& path) -> bool {
        if (const auto known = memo.find(path); known != memo.end()) return known->second;
        const bool answer = [&] {
            if (!named.contains(path) || !exists(path)) return false;
            // The bundle goes its own way; the user's files are never taken on a receipt's word.
            if (!app.empty() && isAtOrBelow(path, app)) return false;
            if (!home.empty() && isAtOrBelow(path, home)) return false;
            if (enclosingAppBundle(path)) return false;
            if (!isDirectory(path)) return true;
            if (pathComponents(path).size() < 3) return false;
            if (isSharedReceiptFolderName(lowercased(lastPathComponent(path)))) return false;
            const auto children = list(path);
            if (!children) return false;
            return std::all_of(children->begin(), children->end(), [&](const std::string& name) {
                return isFinderOnlyFile(name) || owned(appendingPathComponent(path, name));
            });
        }();
        memo[path] = answer;
        return answer;
    };

    std::vector<std::string> sorted = receiptPaths;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::string> taken;
    for (const auto& path : sorted) {
        if (taken.size() >= limit) break;
        if (!owned(path) || owned(deletingLastPathComponent(path))) continue;
        if (std::any_of(taken.begin(), taken.end(), [&](const std::string& t) { return isAtOrBelow(path, t); }))
            continue;
        taken.push_back(path);
    }
    return taken;
}

bool isInstallerReceiptPath(std::string_view path) {
    if (path.size() >= 2 && path.ends_with('/')) path.remove_suffix(1);
    const std::string lower = lowercased(path);
    return std::any_of(installerReceiptFolders.begin(), installerReceiptFolders.end(),
                       [&](std::string_view folder) { return isAtOrBelow(lower, lowercased(folder)); });
}

namespace InstallerReceipts {

std::vector<std::string> packages(const std::string& forApp, const Facts& facts) {
    const auto run = facts.run(kPkgutilTool, {"--file-info", forApp}, kFileInfoSeconds, false, ToolErrors::discarded);
    return parsePkgFileInfo(joinedLines(run.lines));
}

std::vector<ReceiptLeftover> leftovers(const std::string& forApp, const std::string& home, const Facts& facts) {
    auto ids = packages(forApp, facts);
    if (ids.size() > kPackagesRead) ids.resize(kPackagesRead);

    const auto isDirectory = [&](const std::string& path) {
        const auto resolved = facts.resolve(path);
        const auto entry = resolved ? facts.lstat(*resolved) : std::nullopt;
        return entry && entry->isDirectory();
    };
    const auto list = [&](const std::string& path) -> std::optional<std::vector<std::string>> {
        const auto entries = facts.list(path);
        if (!entries) return std::nullopt;
        std::vector<std::string> names;
        for (const auto& entry : *entries) names.push_back(entry.name);
        return names;
    };

    std::vector<ReceiptLeftover> rows;
    std::set<std::string> seen;
    for (const auto& id : ids) {
        const auto info = facts.run(kPkgutilTool, {"--pkg-info", id}, kPkgInfoSeconds, false, ToolErrors::discarded);
        const auto place = parsePkgInfo(joinedLines(info.lines));
        const auto files = facts.run(kPkgutilTool, {"--files", id}, kFilesSeconds, false, ToolErrors::discarded);
        std::vector<std::string> paths;
        paths.reserve(files.lines.size());
        for (const auto& line : files.lines) paths.push_back(receiptAbsolutePath(place.volume, place.location, line));
        for (auto& path :
             receiptLeftovers(paths, forApp, home, facts.exists, isDirectory, list, installerLeftoverRowLimit))
            if (seen.insert(path).second) rows.push_back({std::move(path), id});
    }
    return rows;
}

}  // namespace InstallerReceipts

}  // namespace orvane
