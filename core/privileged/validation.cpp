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

// What Linux adds, since nothing there keeps root away from the system. Each is a deny: a folder
// leaves these tables only with its reason written down beside the others in the design notes.

// Never deletable, nor anything under them (drives under /run/media/<user> excepted).
constexpr std::array<std::string_view, 16> kLinuxSystemRoots = {
    "/boot", "/dev", "/proc", "/sys", "/run",  "/lib", "/lib32", "/lib64",
    "/libx32", "/usr", "/bin", "/sbin", "/etc", "/root", "/srv",  "/snap"};

// Where an item starts by itself or is read by root: the whole of /etc, cron's spool and
// systemd's unit folders.
constexpr std::array<std::string_view, 4> kLinuxPersistenceList = {"/etc", "/var/spool/cron", "/usr/lib/systemd",
                                                                   "/lib/systemd"};

// Start-up folders inside every home, as every user's Library/LaunchAgents is on macOS.
constexpr std::array<std::string_view, 2> kHomeLaunchFolders = {"/Library/LaunchAgents", "/Library/LaunchDaemons"};
constexpr std::array<std::string_view, 2> kLinuxHomeStartupFolders = {"/.config/autostart", "/.config/systemd"};

// Folders whose children are homes; root's own home is /root.
constexpr std::array<std::string_view, 2> kLinuxHomeParents = {"/Users/", "/home/"};
constexpr std::string_view kLinuxRootHome = "/root";

// The only places where an administrator's request may touch what root owns: what the system
// itself treats as disposable, and removable drives.
constexpr std::array<std::string_view, 8> kAdministratorCleanupRoots = {
    "/var/cache", "/var/log", "/var/tmp", "/tmp", "/var/crash", "/media", "/mnt", "/run/media"};

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

// The folder of the home a path lies in ("/Users/a" for "/Users/a/x"); empty when it lies in
// none. Only /Users/ knows homes on macOS; Linux adds /home/ and root's /root.
std::string_view homeFolderOf(std::string_view path, RuleSet rules) {
    auto within = [&](std::string_view parent) -> std::string_view {
        if (!path.starts_with(parent)) return {};
        const std::string_view rest = path.substr(parent.size());
        const auto slash = rest.find('/');
        if (slash == 0 || rest.empty()) return {};
        return path.substr(0, parent.size() + std::min(slash, rest.size()));
    };
    if (rules == RuleSet::macOS) return within("/Users/");
    for (auto parent : kLinuxHomeParents)
        if (auto folder = within(parent); !folder.empty()) return folder;
    if (path == kLinuxRootHome || startsWithDir(path, kLinuxRootHome)) return kLinuxRootHome;
    return {};
}

// Whether the path is, or lies in, a start-up folder of any user's home.
bool homeStartupFolderPattern(std::string_view path, RuleSet rules) {
    const std::string_view text = beforeFinalLineTerminator(path);
    const std::string_view homeFolder = homeFolderOf(text, rules);
    if (homeFolder.empty()) return false;
    const std::string_view rest = text.substr(homeFolder.size());
    auto inFolder = [&](std::string_view folder) { return rest == folder || startsWithDir(rest, folder); };
    if (std::any_of(kHomeLaunchFolders.begin(), kHomeLaunchFolders.end(), inFolder)) return true;
    return rules == RuleSet::withLinuxAdditions &&
           std::any_of(kLinuxHomeStartupFolders.begin(), kLinuxHomeStartupFolders.end(), inFolder);
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

// The form two spellings of one place share. Unicode composition only where the disk itself
// treats composed and decomposed names as one: elsewhere it would let one folder pass for another.
std::string reduced(std::string_view path, const DiskFacts& disk) {
    std::string form = canonicalPathForComparison(standardizePath(path, disk.exists));
    return disk.namesAreNormalized ? nfc(form) : form;
}

// The lexical clean form the Linux tables are written in: "/tmp/x" rather than "/private/tmp/x".
std::string linuxForm(std::string_view path, const DiskFacts& disk) {
    return disk.walkable(canonicalPathForComparison(standardizePath(path, disk.exists)));
}

bool linuxRules(const DiskFacts& disk) { return disk.rules == RuleSet::withLinuxAdditions; }

// A caller the Linux additions hold to deny by default: anyone but root.
bool restrictedCaller(std::optional<std::uint32_t> caller, const DiskFacts& disk) {
    return linuxRules(disk) && caller && *caller != 0;
}

// The ownership rule: with a caller, an item owned by someone other than root must be the
// caller's. Root's items pass on macOS, which guards its system by itself; on Linux only for an
// administrator, and only where the system keeps what it may lose.
bool ownedAcceptably(const std::string& path, std::optional<std::uint32_t> caller, const DiskFacts& disk) {
    if (!caller) return true;
    auto facts = disk.lstat(path);
    if (!facts) return true;
    if (facts->uid == 0) {
        if (!restrictedCaller(caller, disk)) return true;
        return disk.isAdministrator(*caller) && isUnderAdministratorCleanupRoot(linuxForm(path, disk));
    }
    return facts->uid == *caller;
}

// The persistence test on the path as given and, with the Linux additions, on its clean form too,
// so that "/home/u/../../etc/cron.d/x" is judged where it leads.
bool persistent(std::string_view path, const std::string& home, const DiskFacts& disk) {
    if (isPersistenceLocation(path, home, disk.rules)) return true;
    return linuxRules(disk) && isPersistenceLocation(linuxForm(path, disk), home, disk.rules);
}

bool existsAt(const std::string& path, const DiskFacts& disk) { return disk.exists(path); }

std::optional<Refusal> validateCase(const op::RemovePath& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const DiskFacts& disk) {
    if (!wellFormed(c.path)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.path, home, disk)) return Refusal::pathNotAllowed;
    if (persistent(c.path, home, disk)) return Refusal::pathNotAllowed;
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
    // A restore brings the user's data back; it never takes from the system.
    if (linuxRules(disk) && isUnderLinuxSystemRoot(linuxForm(c.staging, disk))) return Refusal::pathNotAllowed;
    if (persistent(c.destination, home, disk)) return Refusal::pathNotAllowed;
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
    if (persistent(c.to, home, disk)) return Refusal::pathNotAllowed;
    // Set aside into the system's own folders, an item would run or be read as the system's.
    if (linuxRules(disk) && isUnderLinuxSystemRoot(linuxForm(c.to, disk))) return Refusal::pathNotAllowed;
    if (inForeignHome(c.to, home, uid, disk)) return Refusal::pathNotAllowed;
    // Without this, a file handed to its owner could be placed in any root-owned folder, one on
    // root's search path too.
    if (restrictedCaller(uid, disk) && !inCallerDomain(c.to, home, uid, disk)) return Refusal::pathNotAllowed;
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
    // A scan as root names what an ordinary user may not see, and a folder on the way swapped for a
    // link while it runs would let it name it anywhere, the caller's own home included: only an
    // administrator, who may read it all anyway, is scanned for.
    if (restrictedCaller(uid, disk) && !disk.isAdministrator(*uid)) return Refusal::pathNotAllowed;
    if (persistent(c.outPath, home, disk)) return Refusal::pathNotAllowed;
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
        [](std::string_view path) { return platform::walkablePath(path); },
        kHostRuleSet,
        [](std::uint32_t uid) { return platform::isAdministrator(uid); },
        platform::namesAreNormalized()};
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

bool isPersistenceLocation(std::string_view pathIn, std::string_view homeIn, RuleSet rules) {
    auto normalise = [](std::string_view text) {
        std::string out(text.starts_with("/private/") ? text.substr(8) : text);
        dropTrailingSlashes(out);
        return out;
    };
    const std::string path = normalise(pathIn);
    auto matches = [&](std::string_view entry) { return path == entry || startsWithDir(path, entry); };
    if (std::any_of(kPersistenceList.begin(), kPersistenceList.end(), matches)) return true;
    const bool withLinux = rules == RuleSet::withLinuxAdditions;
    if (withLinux && std::any_of(kLinuxPersistenceList.begin(), kLinuxPersistenceList.end(), matches)) return true;
    if (!homeIn.empty()) {
        if (matches(normalise(std::string(homeIn) + "/Library/LaunchAgents"))) return true;
        for (auto folder : kLinuxHomeStartupFolders)
            if (withLinux && matches(normalise(std::string(homeIn) + std::string(folder)))) return true;
    }
    return homeStartupFolderPattern(path, rules);
}

bool isUnderLinuxSystemRoot(std::string_view path) {
    // A drive mounted for a user stays reachable; the folders that hold drives do not.
    constexpr std::string_view userDrives = "/run/media/";
    if (path.starts_with(userDrives) && pathComponents(path.substr(userDrives.size())).size() >= 2) return false;
    return std::any_of(kLinuxSystemRoots.begin(), kLinuxSystemRoots.end(),
                       [&](std::string_view root) { return path == root || startsWithDir(path, root); });
}

bool isUnderAdministratorCleanupRoot(std::string_view path) {
    return std::any_of(kAdministratorCleanupRoots.begin(), kAdministratorCleanupRoots.end(),
                       [&](std::string_view root) { return startsWithDir(path, root); });
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
    if (linuxRules(disk) && isUnderLinuxSystemRoot(linuxForm(path, disk))) return false;
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
    if (restrictedCaller(caller, disk)) {
        // A root-owned folder is no one's domain here: only a folder the caller owns, or for an
        // administrator the places where the system keeps what it may lose.
        auto parent = disk.lstat(disk.walkable(deletingLastPathComponent(place)));
        if (parent && parent->uid == *caller) return true;
        return disk.isAdministrator(*caller) && isUnderAdministratorCleanupRoot(disk.walkable(place));
    }
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
    const std::string ownerFolder(homeFolderOf(linuxRules(disk) ? disk.walkable(place) : place, disk.rules));
    if (ownerFolder.empty()) return false;
    if (homePlace == ownerFolder || startsWithDir(homePlace, ownerFolder)) return false;
    if (startsWithDir(place, homePlace) || place == homePlace) return false;
    return true;
}

}  // namespace orvane
