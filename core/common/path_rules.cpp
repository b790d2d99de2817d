#include "core/common/path_rules.hpp"

#include <algorithm>
#include <array>

#include "core/common/path.hpp"

namespace orvane {
namespace {

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

void dropTrailingSlashes(std::string& text) {
    while (text.size() >= 2 && text.back() == '/') text.pop_back();
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

}  // namespace

bool startsWithDir(std::string_view path, std::string_view dir) {
    return path.size() > dir.size() && path.starts_with(dir) && path[dir.size()] == '/';
}

std::string_view beforeFinalLineTerminator(std::string_view text) {
    for (std::string_view terminator : {"\r\n", "\n", "\r", "\u0085", "\u2028", "\u2029"}) {
        if (text.ends_with(terminator)) return text.substr(0, text.size() - terminator.size());
    }
    return text;
}

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

std::string lexicalForm(std::string_view path, const Facts& facts) {
    return facts.walkable(canonicalPathForComparison(standardizePath(path, facts.exists)));
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

bool assertDeletable(std::string_view pathIn, std::string_view home, const Facts& facts) {
    const std::string path = standardizePath(pathIn, facts.exists);
    if (path.empty() || path.front() != '/' || path == "/") return false;
    if (std::find(kSystemRoots.begin(), kSystemRoots.end(), path) != kSystemRoots.end()) return false;
    if (path == home) return false;
    if (startsWithDir(home, path)) return false;
    if (pathComponents(path).size() < 2) return false;
    if (facts.rules == RuleSet::withLinuxAdditions && isUnderLinuxSystemRoot(lexicalForm(path, facts))) return false;
    auto mount = facts.mount(path);
    if (!mount) return true;  // a vanished path is not protected for being one
    return mount->mountPoint != path;
}

bool pathTraversesSymlink(std::string_view path, const Facts& facts) {
    std::string step;
    for (const auto& component : pathComponents(path)) {
        step += '/';
        step += component;
        auto entry = facts.lstat(step);
        if (entry && entry->isSymlink()) return true;
    }
    return false;
}

bool isSymlinkPath(std::string_view path, const Facts& facts) {
    auto entry = facts.lstat(std::string(path));
    return entry && entry->isSymlink();
}

}  // namespace orvane
