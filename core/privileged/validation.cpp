#include "core/privileged/validation.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <set>

#include "core/common/path.hpp"
#include "core/common/path_rules.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

using Refusal = PrivilegedRefusal;

bool wellFormed(std::string_view path) {
    return !path.empty() && path.front() == '/' && path.find('\0') == std::string_view::npos;
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

bool snapshotDateWellFormed(std::string_view date) {
    static constexpr std::string_view shape = "0000-00-00-000000";
    if (date.size() != shape.size()) return false;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        bool ok = shape[i] == '-' ? date[i] == '-' : (date[i] >= '0' && date[i] <= '9');
        if (!ok) return false;
    }
    return true;
}

// The form two spellings of one place share. Unicode composition only where the facts itself
// treats composed and decomposed names as one: elsewhere it would let one folder pass for another.
std::string reduced(std::string_view path, const Facts& facts) {
    std::string form = canonicalPathForComparison(standardizePath(path, facts.exists));
    return facts.namesAreNormalized ? nfc(form) : form;
}

bool linuxRules(const Facts& facts) { return facts.rules == RuleSet::withLinuxAdditions; }

// A caller the Linux additions hold to deny by default: anyone but root.
bool restrictedCaller(std::optional<std::uint32_t> caller, const Facts& facts) {
    return linuxRules(facts) && caller && *caller != 0;
}

// The ownership rule: with a caller, an item owned by someone other than root must be the
// caller's. Root's items pass on macOS, which guards its system by itself; on Linux only for an
// administrator, and only where the system keeps what it may lose.
bool ownedAcceptably(const std::string& path, std::optional<std::uint32_t> caller, const Facts& facts) {
    if (!caller) return true;
    auto entry = facts.lstat(path);
    if (!entry) return true;
    if (entry->uid == 0) {
        if (!restrictedCaller(caller, facts)) return true;
        return facts.isAdministrator(*caller) && isUnderAdministratorCleanupRoot(lexicalForm(path, facts));
    }
    return entry->uid == *caller;
}

// The persistence test on the path as given and, with the Linux additions, on its clean form too,
// so that "/home/u/../../etc/cron.d/x" is judged where it leads.
bool persistent(std::string_view path, const std::string& home, const Facts& facts) {
    if (isPersistenceLocation(path, home, facts.rules)) return true;
    return linuxRules(facts) && isPersistenceLocation(lexicalForm(path, facts), home, facts.rules);
}

bool existsAt(const std::string& path, const Facts& facts) { return facts.exists(path); }

std::optional<Refusal> validateCase(const op::RemovePath& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (!wellFormed(c.path)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.path, home, facts)) return Refusal::pathNotAllowed;
    if (persistent(c.path, home, facts)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (!ownedAcceptably(c.path, uid, facts)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::SwapToSymlink& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (!wellFormed(c.original) || !wellFormed(c.target)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.original, home, facts)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.original, facts)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.target, facts)) return Refusal::sourceMissing;
    if (!ownedAcceptably(c.original, uid, facts)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::RestoreFromStaging& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (!wellFormed(c.staging) || !wellFormed(c.destination)) return Refusal::notAbsolutePath;
    if (!existsAt(c.staging, facts)) return Refusal::sourceMissing;
    // The comparison form is walked here so that "/tmp" and "/var" in a staging path, links on
    // macOS, do not count against it.
    if (pathTraversesSymlink(facts.walkable(canonicalPathForComparison(c.staging)), facts))
        return Refusal::pathTraversesSymlink;
    if (!ownedAcceptably(c.staging, uid, facts)) return Refusal::pathNotAllowed;
    // A restore brings the user's data back; it never takes from the system.
    if (linuxRules(facts) && isUnderLinuxSystemRoot(lexicalForm(c.staging, facts))) return Refusal::pathNotAllowed;
    if (persistent(c.destination, home, facts)) return Refusal::pathNotAllowed;
    if (!inCallerDomain(c.destination, home, uid, facts)) return Refusal::pathNotAllowed;
    // A link at the destination is the normal case: it is the shortcut being undone.
    if (existsAt(c.destination, facts)) {
        auto entry = facts.lstat(c.destination);
        if (!entry || !entry->isSymlink()) return Refusal::destinationOccupied;
    }
    if (!assertDeletable(c.destination, home, facts)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(deletingLastPathComponent(c.destination), facts))
        return Refusal::pathTraversesSymlink;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::DeleteSnapshots& c, const std::string&,
                                    std::optional<std::uint32_t>, const Facts&) {
    if (c.dates.empty()) return Refusal::malformedSnapshotDate;
    for (const auto& date : c.dates)
        if (!snapshotDateWellFormed(date)) return Refusal::malformedSnapshotDate;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::MoveAside& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (!wellFormed(c.path) || !wellFormed(c.to)) return Refusal::notAbsolutePath;
    if (!assertDeletable(c.path, home, facts)) return Refusal::pathNotAllowed;
    if (pathTraversesSymlink(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, facts)) return Refusal::sourceMissing;
    if (existsAt(c.to, facts)) return Refusal::destinationOccupied;
    if (pathTraversesSymlink(deletingLastPathComponent(c.to), facts)) return Refusal::pathTraversesSymlink;
    if (persistent(c.to, home, facts)) return Refusal::pathNotAllowed;
    // Set aside into the system's own folders, an item would run or be read as the system's.
    if (linuxRules(facts) && isUnderLinuxSystemRoot(lexicalForm(c.to, facts))) return Refusal::pathNotAllowed;
    if (inForeignHome(c.to, home, uid, facts)) return Refusal::pathNotAllowed;
    // Without this, a file handed to its owner could be placed in any root-owned folder, one on
    // root's search path too.
    if (restrictedCaller(uid, facts) && !inCallerDomain(c.to, home, uid, facts)) return Refusal::pathNotAllowed;
    if (uid && c.chownTo != *uid) return Refusal::pathNotAllowed;
    if (!ownedAcceptably(c.path, uid, facts)) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::PrivilegedScan& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (c.kind != "folder" && c.kind != "volume") return Refusal::pathNotAllowed;
    if (!wellFormed(c.root) || !wellFormed(c.outPath)) return Refusal::notAbsolutePath;
    auto root = facts.lstat(c.root);
    if (!root || !root->isDirectory()) return Refusal::sourceMissing;
    if (pathTraversesSymlink(c.root, facts)) return Refusal::pathTraversesSymlink;
    // A scan as root names what an ordinary user may not see, and a folder on the way swapped for a
    // link while it runs would let it name it anywhere, the caller's own home included: only an
    // administrator, who may read it all anyway, is scanned for.
    if (restrictedCaller(uid, facts) && !facts.isAdministrator(*uid)) return Refusal::pathNotAllowed;
    if (persistent(c.outPath, home, facts)) return Refusal::pathNotAllowed;
    if (!inCallerDomain(c.outPath, home, uid, facts)) return Refusal::pathNotAllowed;
    if (existsAt(c.outPath, facts) || isSymlinkPath(c.outPath, facts)) return Refusal::destinationOccupied;
    const std::string parent = deletingLastPathComponent(c.outPath);
    if (pathTraversesSymlink(parent, facts)) return Refusal::pathTraversesSymlink;
    auto parentFacts = facts.lstat(parent);
    if (!parentFacts || !parentFacts->isDirectory()) return Refusal::sourceMissing;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::SetLaunchItemEnabled& c, const std::string&,
                                    std::optional<std::uint32_t>, const Facts& facts) {
    if (!wellFormed(c.path)) return Refusal::notAbsolutePath;
    if (!systemLaunchItemPathAllowed(c.path)) return Refusal::pathNotAllowed;
    const bool carriesSuffix = std::string_view(c.path).ends_with(disabledAgentSuffix);
    if (carriesSuffix != c.enabled) return Refusal::pathNotAllowed;
    if (isSymlinkPath(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (pathTraversesSymlink(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, facts)) return Refusal::sourceMissing;
    const std::string renamed = c.enabled ? c.path.substr(0, c.path.size() - disabledAgentSuffix.size())
                                          : c.path + std::string(disabledAgentSuffix);
    if (existsAt(renamed, facts)) return Refusal::destinationOccupied;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::TrashLaunchItem& c, const std::string& home,
                                    std::optional<std::uint32_t> uid, const Facts& facts) {
    if (!wellFormed(c.path) || !wellFormed(c.to)) return Refusal::notAbsolutePath;
    if (!systemLaunchItemPathAllowed(c.path)) return Refusal::pathNotAllowed;
    if (deletingLastPathComponent(c.to) != appendingPathComponent(home, ".Trash"))
        return Refusal::pathNotAllowed;
    if (isSymlinkPath(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (pathTraversesSymlink(c.path, facts)) return Refusal::pathTraversesSymlink;
    if (!existsAt(c.path, facts)) return Refusal::sourceMissing;
    if (pathTraversesSymlink(deletingLastPathComponent(c.to), facts)) return Refusal::pathTraversesSymlink;
    if (existsAt(c.to, facts)) return Refusal::destinationOccupied;
    if (uid && c.chownTo != *uid) return Refusal::pathNotAllowed;
    return std::nullopt;
}

std::optional<Refusal> validateCase(const op::DeleteTrashedApp& c, const std::string& home,
                                    std::optional<std::uint32_t>, const Facts& facts) {
    if (!isTrashedAppName(c.name)) return Refusal::pathNotAllowed;
    auto entry = facts.lstat(appendingPathComponent(home, ".Trash/" + c.name));
    if (!entry) return Refusal::sourceMissing;
    // Anything but a folder, a plain file too, is answered with this word, on purpose.
    if (!entry->isDirectory()) return Refusal::pathTraversesSymlink;
    return std::nullopt;
}

template <typename T>
std::optional<Refusal> validateCase(const T&, const std::string&, std::optional<std::uint32_t>,
                                    const Facts&) {
    return std::nullopt;  // thinSnapshots, purgeInactiveMemory, resetBackgroundItems
}

}  // namespace

std::optional<PrivilegedRefusal> validate(const PrivilegedOperation& operation, const std::string& home,
                                          std::optional<std::uint32_t> callerUID, const Facts& facts) {
    return std::visit([&](const auto& c) { return validateCase(c, home, callerUID, facts); },
                      operation.value);
}

std::optional<BatchRefusal> validatePrivilegedBatch(const std::vector<PrivilegedOperation>& operations,
                                                    const std::string& home, const Facts& facts) {
    std::set<std::string> vacated;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const auto& operation = operations[i];
        if (auto refusal = validate(operation, home, std::nullopt, facts)) {
            const std::string* second = nullptr;
            if (auto move = operation.as<op::MoveAside>()) second = &move->to;
            if (auto restore = operation.as<op::RestoreFromStaging>()) second = &restore->destination;
            const bool waived = *refusal == Refusal::destinationOccupied && second &&
                                vacated.contains(standardizePath(*second, facts.exists));
            if (!waived) return BatchRefusal{operation, *refusal, i};
        }
        const std::string* first = nullptr;
        if (auto remove = operation.as<op::RemovePath>()) first = &remove->path;
        if (auto swap = operation.as<op::SwapToSymlink>()) first = &swap->original;
        if (auto move = operation.as<op::MoveAside>()) first = &move->path;
        if (first) vacated.insert(standardizePath(*first, facts.exists));
    }
    return std::nullopt;
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
                    const Facts& facts) {
    if (!caller) return true;
    const std::string place = reduced(path, facts);
    const std::string homePlace = reduced(home, facts);
    if (place == homePlace || startsWithDir(place, homePlace)) return true;
    if (restrictedCaller(caller, facts)) {
        // A root-owned folder is no one's domain here: only a folder the caller owns, or for an
        // administrator the places where the system keeps what it may lose.
        auto parent = facts.lstat(facts.walkable(deletingLastPathComponent(place)));
        if (parent && parent->uid == *caller) return true;
        return facts.isAdministrator(*caller) && isUnderAdministratorCleanupRoot(facts.walkable(place));
    }
    auto entry = facts.lstat(facts.walkable(place));
    if (entry && entry->uid == 0) return true;
    auto parent = facts.lstat(facts.walkable(deletingLastPathComponent(place)));
    return parent && parent->uid == 0;
}

bool inForeignHome(std::string_view path, std::string_view home, std::optional<std::uint32_t> caller,
                   const Facts& facts) {
    if (!caller) return false;
    const std::string place = reduced(path, facts);
    const std::string homePlace = reduced(home, facts);
    const std::string ownerFolder(homeFolderOf(linuxRules(facts) ? facts.walkable(place) : place, facts.rules));
    if (ownerFolder.empty()) return false;
    if (homePlace == ownerFolder || startsWithDir(homePlace, ownerFolder)) return false;
    if (startsWithDir(place, homePlace) || place == homePlace) return false;
    return true;
}

}  // namespace orvane
