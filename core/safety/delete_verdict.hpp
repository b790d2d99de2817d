// Whether something may be deleted and how, with the sentence the user reads when it may not:
// never the system, a mount point, the home or what leads to it, anything reached through a
// shortcut, or anything that is or holds a source project.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// The reasons of a refusal, as the user reads them: clauses without an initial capital.
inline constexpr std::string_view kProtectedRefusal =
    "protected location — a system root, a mount root, your home folder or an ancestor of it";
inline constexpr std::string_view kViaShortcutRefusal =
    "the path leads through a shortcut, so the real data lives somewhere else — usually an external drive";
inline constexpr std::string_view kIsShortcutRefusal =
    "this is a shortcut, not a folder — clearing it would empty whatever it points at";
inline constexpr std::string_view kNotOnDiskRefusal =
    "not a file on disk — this row describes a system record, not something that can be removed";
inline constexpr std::string_view kProjectItselfRefusal =
    "this is a project you're building, not spare space — Velloran Orvane doesn't delete source trees. Its "
    "rebuildable parts (build folders, venvs, node_modules) are offered separately, and they are where the space "
    "actually is.";
// `name`: the last component of the project's root.
std::string holdsProjectRefusal(std::string_view name);
// `title`: the janitor's title, as "npm".
std::string vendorCacheRefusal(std::string_view title);

struct DeleteVerdict {
    struct Refuse {
        std::string reason;
        bool operator==(const Refuse&) const = default;
    };
    struct Trash {
        bool operator==(const Trash&) const = default;
    };
    struct RemovePermanently {
        bool operator==(const RemovePermanently&) const = default;
    };
    std::variant<Refuse, Trash, RemovePermanently> value;

    static DeleteVerdict refuse(std::string_view reason) { return {Refuse{std::string(reason)}}; }
    static DeleteVerdict trash() { return {Trash{}}; }
    static DeleteVerdict removePermanently() { return {RemovePermanently{}}; }
    bool refused() const { return std::holds_alternative<Refuse>(value); }
    // The reason of a refusal; none for the other cases.
    std::optional<std::string> reason() const;
    bool operator==(const DeleteVerdict&) const = default;
};
// "trash", "removePermanently", or "refuse(REASON)".
std::string describe(const DeleteVerdict& verdict);

struct RestoreVerdict {
    struct Abort {
        std::string reason;
        bool operator==(const Abort&) const = default;
    };
    struct Proceed {
        bool operator==(const Proceed&) const = default;
    };
    std::variant<Abort, Proceed> value;

    static RestoreVerdict abort(std::string reason) { return {Abort{std::move(reason)}}; }
    static RestoreVerdict proceed() { return {Proceed{}}; }
    bool operator==(const RestoreVerdict&) const = default;
};
std::string describe(const RestoreVerdict& verdict);

// The verdict for a path whose link facts the caller already knows. The home is read at each
// call; the disk is asked for the mount point and for the folders of `sourceProjectWithin`
// (two levels, 400 names), so that it stays quick enough for every row of a list. All of it
// through `facts`.
DeleteVerdict deleteVerdict(std::string_view path, bool permanently, bool contentsOnly, bool isSymlink,
                            bool traversesSymlink, const Facts& facts = Facts::real());

// For a row that may not be a file at all: a text that is no absolute path is refused; otherwise
// the link facts come from the disk. A link at the path itself counts as leading through one.
DeleteVerdict onDiskDeleteVerdict(std::string_view path, bool permanently, const Facts& facts = Facts::real());

struct PathVerdict {
    std::string path;
    DeleteVerdict verdict;
    bool operator==(const PathVerdict&) const = default;
};

// The leftovers of an app, each judged for the Trash, in the given order.
std::vector<PathVerdict> leftoverCommitVerdict(const std::vector<std::string>& paths,
                                              const Facts& facts = Facts::real());

// An entry of a Trash folder, judged for removal for good. None for a name that is no single
// entry ("", ".", "..", or holding "/" or NUL): such a name is not even considered.
std::optional<PathVerdict> autoEmptyTrashVerdict(std::string_view trashRoot, std::string_view entryName);

// Whether a copy brought back from a drive may replace anything: the file count must match
// exactly; the size must be at least half of the source's, when that is known.
RestoreVerdict restoreVerdict(std::int64_t stagedFiles, std::int64_t sourceFiles, std::int64_t stagedBytes,
                              std::int64_t sourceBytes);

// The first folder at or below `path`, breadth-first, that shows a project marker. Rebuildable
// folders are never searched (nor is one given as `path`), nor are hidden folders or links; a
// standard home container ("Documents", ...) is judged by its own top level. Stops, finding
// nothing, once `maxEntries` names were read: a miss means only that none was found in budget.
std::optional<std::string> sourceProjectWithin(std::string_view path, int maxDepth, int maxEntries,
                                               const Facts& facts = Facts::real());

}  // namespace orvane
