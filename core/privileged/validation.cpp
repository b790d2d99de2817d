#include "core/privileged/validation.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <set>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

using Refusal = PrivilegedRefusal;

constexpr std::array<std::string_view, 15> kSystemRoots = {
    "/System", "/Library", "/usr",          "/bin",  "/sbin",    "/private", "/etc",   "/var",
    "/opt",    "/tmp",     "/Applications", "/Users", "/Volumes", "/cores",   "/Network"};

constexpr std::array<std::string_view, 33> kPersistenceList = {
    "/Library/LaunchDaemons",
    "/Library/LaunchAgents",
    "/System/Library/LaunchDaemons",
    "/System/Library/LaunchAgents",
    "/Library/StartupItems",
    "/System/Library/StartupItems",
    "/Library/PrivilegedHelperTools",
    "/Library/Security/SecurityAgentPlugins",
    "/Library/Extensions",
    "/System/Library/Extensions",
    "/Library/SystemExtensions",
    "/usr/lib/cron/tabs",
    "/var/at",
    "/etc/crontab",
    "/etc/sudoers",
    "/etc/sudoers.d",
    "/etc/pam.d",
    "/etc/paths.d",
    "/etc/periodic",
    "/etc/rc.d",
    "/etc/newsyslog.d",
    "/etc/emond.d",
    "/etc/launchd.conf",
    "/etc/zshenv",
    "/etc/zprofile",
    "/etc/zshrc",
    "/etc/bashrc",
    "/etc/profile",
    "/etc/csh.cshrc",
    "/etc/csh.login",
    "/var/root",
    "/Library/Preferences/com.apple.loginwindow.plist",
    "/System/Library/User Template"};

bool wellFormed(std::string_view path) {
    return !path.empty() && path.front() == '/' && path.find('\0') == std::string_view::npos;
}

bool startsWithDir(std::string_view path, std::string_view dir) {
    return path.size() > dir.size() && path.starts_with(dir) && path[dir.size()] == '/';
}

void dropTrailingSlashes(std::string& text) {
    while (text.size() >= 2 && text.back() == '/') text.pop_back();
}

// The pattern engine's "$": the end of the text, or just before one line terminator ending it.
std::string_view beforeFinalLineTerminator(std::string_view text) {
    for (std::string_view terminator : {"\r\n", "\n", "\r", "\u0085", "\u2028", "\u2029"}) {
        if (text.ends_with(terminator)) return text.substr(0, text.size() - terminator.size());
    }
    return text;
}

std::vector<utf8proc_int32_t> codePoints(std::string_view text) {
    std::vector<utf8proc_int32_t> out;
    for (std::size_t i = 0; i < text.size();) {
        utf8proc_int32_t cp = -1;
        auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                                  static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
        if (n <= 0) {
            cp = -1;
            n = 1;
        }
        out.push_back(cp);
        i += static_cast<std::size_t>(n);
    }
    return out;
}

// "\d" of the pattern engine: any decimal digit of Unicode, not only 0-9.
bool isDigit(utf8proc_int32_t cp) {
    return cp >= 0 && utf8proc_category(cp) == UTF8PROC_CATEGORY_ND;
}

// \.app \d{1,2}-\d{2}-\d{2}(-\d+)? matched from `start` to the end of `cps`.
bool finderStampFrom(const std::vector<utf8proc_int32_t>& cps, std::size_t start) {
    std::size_t i = start;
    for (char c : std::string_view(".app ")) {
        if (i >= cps.size() || cps[i] != c) return false;
        ++i;
    }
    auto digits = [&](std::size_t atLeast, std::size_t atMost) {
        std::size_t n = 0;
        while (n < atMost && i < cps.size() && isDigit(cps[i])) ++i, ++n;
        return n >= atLeast;
    };
    auto dash = [&] {
        if (i >= cps.size() || cps[i] != '-') return false;
        ++i;
        return true;
    };
    if (!digits(1, 2) || !dash() || !digits(2, 2) || !dash() || !digits(2, 2)) return false;
    if (i == cps.size()) return true;
    return dash() && digits(1, SIZE_MAX) && i == cps.size();
}

bool userLaunchFolderPattern(std::string_view path) {
    std::string_view rest = beforeFinalLineTerminator(path);
    if (!rest.starts_with("/Users/")) return false;
    rest.remove_prefix(7);
    auto slash = rest.find('/');
    if (slash == 0 || slash == std::string_view::npos) return false;
    rest.remove_prefix(slash);
    for (std::string_view folder : {"/Library/LaunchAgents", "/Library/LaunchDaemons"}) {
        if (rest == folder || startsWithDir(rest, folder)) return true;
    }
    return false;
}

bool snapshotDateWellFormed(std::string_view date) {
    static constexpr std::string_view shape = "0000-00-00-000000";
    if (date.size() != shape.size()) return false;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        bool ok = shape[i] == '-' ? date[i] == '-' : (date[i] >= '0' && date[i] <= '9');
        if (!ok) return false;
    }
    return true;
}

std::string reduced(std::string_view path, const DiskFacts& disk) {
    return nfc(canonicalPathForComparison(standardizePath(path, disk.exists)));
}

// The ownership rule: with a caller, an item owned by someone other than root must be the caller's.
bool ownedAcceptably(const std::string& path, std::optional<std::uint32_t> caller, const DiskFacts& disk) {
    if (!caller) return true;
    auto facts = disk.lstat(path);
    if (!facts || facts->uid == 0) return true;
    return facts->uid == *caller;
}

bool existsAt(const std::string& path, const DiskFacts& disk) { return disk.exists(path); }

std::optional<Refusal> validateCase(const op::RemovePath& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.path)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.path, home, disk)) return Refusal::pathNotAllowed;
    if (isPersistenceLocation(c.path, home)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (!ownedAcceptably(c.path, uid, disk)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::SwapToSymlink& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.original) || !wellFormed(c.target)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.original, home, disk)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.original, disk)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.target, disk)) return Refusal::sourceMissing;
    if (!ownedAcceptably(c.original, uid, disk)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::RestoreFromStaging& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.staging) || !wellFormed(c.destination)) return Refusal::notAbsolutePath;
    if (!existsAt(c.staging, disk)) return Refusal::sourceMissing;
    // The comparison form is walked here so that "/tmp" and "/var" in a staging path, links on
    // macOS, do not count against it.
    if (pathTraversesSymlink(disk.walkable(canonicalPathForComparison(c.staging)), disk))
        return Refusal::pathTraversesSymlink;
    if (!ownedAcceptably(c.staging, uid, disk)) return Refusal::pathNotAllowed;
    if (isPersistenceLocation(c.destination, home)) return Refusal::pathNotAllowed;
    if (!inCallerDomain(c.destination, home, uid, disk)) return Refusal::pathNotAllowed;
    // A link at the destination is the normal case: it is the shortcut being undone.
    if (existsAt(c.destination, disk)) {
        auto facts = disk.lstat(c.destination);
        if (!facts || !facts->isSymlink()) return Refusal::destinationOccupied;
    }
    if (!assertDeletable(c.destination, home, disk)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(deletingLastPathComponent(c.destination), disk))
        return Refusal::pathTraversesSymlink;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::DeleteSnapshots& c, const std::string&,
                                    std::optional<std::uint32_t>, const DiskFacts&) {
    if (c.dates.empty()) return Refusal::malformedSnapshotDate;
    for (const auto& date : c.dates)
        if (!snapshotDateWellFormed(date)) return Refusal::malformedSnapshotDate;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::MoveAside& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.path) || !wellFormed(c.to)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.path, home, disk)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, disk)) return Refusal::sourceMissing;
    if (existsAt(c.to, disk)) return Refusal::destinationOccupied;
    if (pathTraversesSymlink(deletingLastPathComponent(c.to), disk)) return Refusal::pathTraversesSymlink;
    if (isPersistenceLocation(c.to, home)) return Refusal::pathNotAllowed;
    if (inForeignHome(c.to, home, uid, disk)) return Refusal::pathNotAllowed;
    if (uid && c.chownTo != *uid) return Refusal::pathNotAllowed;
    if (!ownedAcceptably(c.path, uid, disk)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::PrivilegedScan& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (c.kind != "folder" && c.kind != "volume") return Refusal::pathNotAllowed;
    if (!wellFormed(c.root) || !wellFormed(c.outPath)) return Refusal::notAbsolutePath;
    auto root = disk.lstat(c.root);
    if (!root || !root->isDirectory()) return Refusal::sourceMissing;
    if (pathTraversesSymlink(c.root, disk)) return Refusal::pathTraversesSymlink;
    if (isPersistenceLocation(c.outPath, home)) return Refusal::pathNotAllowed;
    if (!inCallerDomain(c.outPath, home, uid, disk)) return Refusal::pathNotAllowed;
    if (existsAt(c.outPath, disk) || isSymlinkPath(c.outPath, disk)) return Refusal::destinationOccupied;
    const std::string parent = deletingLastPathComponent(c.outPath);
    if (pathTraversesSymlink(parent, disk)) return Refusal::pathTraversesSymlink;
    auto parentFacts = disk.lstat(parent);
    if (!parentFacts || !parentFacts->isDirectory()) return Refusal::sourceMissing;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::SetLaunchItemEnabled& c, const std::string&,
                                    std::optional<std::uint32_t>, const DiskFacts& disk) {
    if (!wellFormed(c.path)) return Refusal::notAbsolutePath;
    if (!systemLaunchItemPathAllowed(c.path)) return Refusal::pathNotAllowed;
    const bool carriesSuffix = std::string_view(c.path).ends_with(kDisabledSuffix);
    if (carriesSuffix != c.enabled) return Refusal::pathNotAllowed;
    if (isSymlinkPath(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (pathTraversesSymlink(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, disk)) return Refusal::sourceMissing;
    const std::string renamed = c.enabled ? c.path.substr(0, c.path.size() - kDisabledSuffix.size())
                                          : c.path + std::string(kDisabledSuffix);
    if (existsAt(renamed, disk)) return Refusal::destinationOccupied;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::TrashLaunchItem& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.path) || !wellFormed(c.to)) return Refusal::notAbsolutePath;
    if (!systemLaunchItemPathAllowed(c.path)) return Refusal::pathNotAllowed;
    if (deletingLastPathComponent(c.to) != appendingPathComponent(home, ".Trash"))
        return Refusal::pathNotAllowed;
    if (isSymlinkPath(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (pathTraversesSymlink(c.path, disk)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, disk)) return Refusal::sourceMissing;
    if (pathTraversesSymlink(deletingLastPathComponent(c.to), disk)) return Refusal::pathTraversesSymlink;
    if (existsAt(c.to, disk)) return Refusal::destinationOccupied;
    if (uid && c.chownTo != *uid) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::DeleteTrashedApp& c, const std::string& home,
                                    std::optional<std::uint32_t>, const DiskFacts& disk) {
    if (!isTrashedAppName(c.name)) return Refusal::pathNotAllowed;
    auto facts = disk.lstat(appendingPathComponent(home, ".Trash/" + c.name));
    if (!facts) return Refusal::sourceMissing;
    // Anything but a folder, a plain file too, is answered with this word, on purpose.
    if (!facts->isDirectory()) return Refusal::pathTraversesSymlink;
    return std::nullopt;
}

template <typename T>
std::optional<Refusal> validateCase(const T&, const std::string&, std::optional<std::uint32_t>,
                                    const DiskFacts&) {
    return std::nullopt;  // thinSnapshots, purgeInactiveMemory, resetBackgroundItems
}

}  // namespace

const DiskFacts& DiskFacts::real() {
    static const DiskFacts facts{
        [](const std::string& path) { return platform::lstatFacts(path); },
        [](const std::string& path) { return fileExists(path); },
        [](const std::string& path) -> std::optional<std::string> {
            auto mount = platform::mountOf(path);
            if (!mount) return std::nullopt;
            return mount->mountPoint;
        },
        [](std::string_view path) { return platform::walkablePath(path); }};
    return facts;
}

std::optional<PrivilegedRefusal> validate(const PrivilegedOperation& operation, const std::string& home,
                                          std::optional<std::uint32_t> callerUID, const DiskFacts& disk) {
    return std::visit([&](const auto& c) { return validateCase(c, home, callerUID, disk); },
                      operation.value);
}

std::optional<BatchRefusal> validatePrivilegedBatch(const std::vector<PrivilegedOperation>& operations,
                                                    const std::string& home, const DiskFacts& disk) {
    std::set<std::string> vacated;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const auto& operation = operations[i];
        if (auto refusal = validate(operation, home, std::nullopt, disk)) {
            const std::string* second = nullptr;
            if (auto move = operation.as<op::MoveAside>()) second = &move->to;
            if (auto restore = operation.as<op::RestoreFromStaging>()) second = &restore->destination;
            const bool waived = *refusal == Refusal::destinationOccupied && second &&
                                vacated.contains(standardizePath(*second, disk.exists));
            if (!waived) return BatchRefusal{operation, *refusal, i};
        }
        const std::string* first = nullptr;
        if (auto remove = operation.as<op::RemovePath>()) first = &remove->path;
        if (auto swap = operation.as<op::SwapToSymlink>()) first = &swap->original;
        if (auto move = operation.as<op::MoveAside>()) first = &move->path;
        if (first) vacated.insert(standardizePath(*first, disk.exists));
    }
    return std::nullopt;
}

bool isPersistenceLocation(std::string_view pathIn, std::string_view homeIn) {
    auto normalise = [](std::string_view text) {
        std::string out(text.starts_with("/private/") ? text.substr(8) : text);
        dropTrailingSlashes(out);
        return out;
    };
    const std::string path = normalise(pathIn);
    auto matches = [&](std::string_view entry) { return path == entry || startsWithDir(path, entry); };
    if (std::any_of(kPersistenceList.begin(), kPersistenceList.end(), matches)) return true;
    if (!homeIn.empty() && matches(normalise(std::string(homeIn) + "/Library/LaunchAgents"))) return true;
    return userLaunchFolderPattern(path);
}

std::string canonicalPathForComparison(std::string_view path) {
    std::string text(path);
    for (std::size_t at; (at = text.find("//")) != std::string::npos;) {
        std::string collapsed;
        collapsed.reserve(text.size());
        for (char c : text)
            if (!(c == '/' && !collapsed.empty() && collapsed.back() == '/')) collapsed += c;
        text = std::move(collapsed);
    }
    dropTrailingSlashes(text);
    constexpr std::string_view data = "/System/Volumes/Data";
    if (text == data) return "/";
    if (startsWithDir(text, data)) text.erase(0, data.size());
    for (std::string_view linked : {"/tmp", "/var", "/etc"}) {
        if (text == linked || startsWithDir(text, linked)) return "/private" + text;
    }
    return text;
}

bool systemLaunchItemPathAllowed(std::string_view path) {
    const std::string parent = deletingLastPathComponent(path);
    if (parent != "/Library/LaunchAgents" && parent != "/Library/LaunchDaemons") return false;
    // The name is what follows the parent and its one "/": a trailing slash leaves it holding one.
    std::string_view name = path.substr(std::min(path.size(), parent.size() + 1));
    if (name.empty() || name.find('/') != std::string_view::npos || name == "." || name == "..")
        return false;
    if (name.starts_with("com.apple.")) return false;
    return name.ends_with(".plist") || name.ends_with(".plist.disabled-by-orvane");
}

bool assertDeletable(std::string_view pathIn, std::string_view home, const DiskFacts& disk) {
    const std::string path = standardizePath(pathIn, disk.exists);
    if (path.empty() || path.front() != '/' || path == "/") return false;
    if (std::find(kSystemRoots.begin(), kSystemRoots.end(), path) != kSystemRoots.end()) return false;
    if (path == home) return false;
    if (startsWithDir(home, path)) return false;
    if (pathComponents(path).size() < 2) return false;
    auto mountPoint = disk.mountPoint(path);
    if (!mountPoint) return true;  // a vanished path is not protected for being one
    return *mountPoint != path;
}

bool pathTraversesSymlink(std::string_view path, const DiskFacts& disk) {
    std::string step;
    for (const auto& component : pathComponents(path)) {
        step += '/';
        step += component;
        auto facts = disk.lstat(step);
        if (facts && facts->isSymlink()) return true;
    }
    return false;
}

bool isSymlinkPath(std::string_view path, const DiskFacts& disk) {
    auto facts = disk.lstat(std::string(path));
    return facts && facts->isSymlink();
}

bool isTrashedAppName(std::string_view name) {
    if (name.empty()) return false;
    const std::size_t length = characterCount(name);
    if (length > 255) return false;
    if (name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos ||
        name == "." || name == "..")
        return false;
    if (length < 5) return false;
    if (lowercased(name).ends_with(".app")) return true;
    const auto cps = codePoints(beforeFinalLineTerminator(name));
    for (std::size_t i = 0; i < cps.size(); ++i)
        if (cps[i] == '.' && finderStampFrom(cps, i)) return true;
    return false;
}

bool inCallerDomain(std::string_view path, std::string_view home, std::optional<std::uint32_t> caller,
                    const DiskFacts& disk) {
    if (!caller) return true;
    const std::string place = reduced(path, disk);
    const std::string homePlace = reduced(home, disk);
    if (place == homePlace || startsWithDir(place, homePlace)) return true;
    auto facts = disk.lstat(disk.walkable(place));
    if (facts && facts->uid == 0) return true;
    auto parent = disk.lstat(disk.walkable(deletingLastPathComponent(place)));
    return parent && parent->uid == 0;
}

bool inForeignHome(std::string_view path, std::string_view home, std::optional<std::uint32_t> caller,
                   const DiskFacts& disk) {
    if (!caller) return false;
    const std::string place = reduced(path, disk);
    const std::string homePlace = reduced(home, disk);
    if (!place.starts_with("/Users/")) return false;
    auto parts = pathComponents(std::string_view(place).substr(7));
    if (parts.empty()) return false;
    const std::string ownerFolder = "/Users/" + parts.front();
    if (homePlace == ownerFolder || startsWithDir(homePlace, ownerFolder)) return false;
    if (startsWithDir(place, homePlace) || place == homePlace) return false;
    return true;
}

}  // namespace orvane
