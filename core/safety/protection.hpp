// What should be left alone for this user: what the user marked, what a running app is using,
// and a short built-in list of data that is painful to lose though it looks like clutter. User
// and in-use protection are locks; built-in protection is advice that lowers an item's rating.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"
#include "core/scan/space_item.hpp"


namespace orvane {

struct ProtectEntry {
    enum class Kind { item, folder, app };
    Kind kind = Kind::item;
    std::string value;  // a path, or a bundle identifier for an app
    std::string label;
    std::vector<std::string> appFolders;  // for an app: the roots the protection covers
    TimePoint added;

    std::string id() const;  // "folder:/Users/a/Stems"
    std::vector<std::string> roots() const;
    bool operator==(const ProtectEntry&) const = default;
};
template <>
struct RawValues<ProtectEntry::Kind> {
    static constexpr std::array<std::pair<ProtectEntry::Kind, std::string_view>, 3> table = {
        {{ProtectEntry::Kind::item, "item"}, {ProtectEntry::Kind::folder, "folder"}, {ProtectEntry::Kind::app, "app"}}};
};

struct ProtectList {
    static constexpr int currentVersion = 1;
    int version = currentVersion;
    std::vector<ProtectEntry> entries;  // in the order added

    // Nothing happens when an entry with the same id is there.
    void add(ProtectEntry entry);
    void remove(const std::string& id);
    // None for anything that does not decode, and for a list from a newer release.
    static std::optional<ProtectList> decode(std::string_view data);
    // Pretty, sorted keys, dates as seconds since 2001.
    std::string encoded() const;
    bool operator==(const ProtectList&) const = default;
};

// The user's list as found in its file. A missing file is an empty list. A file that is there but
// gives no list (unreadable, not a regular file, too large, damaged, or from a later release) is
// unreadable: what it protects is unknown, so it protects everything, and it is never overwritten.
struct StoredProtectList {
    std::string path;
    std::optional<ProtectList> list;  // none when unreadable
    std::string problem;              // a sentence naming the file; empty when read

    // The refusal every path gets while the list is unreadable.
    std::string unreadableRefusal() const;
};
// Plenty for any list a person keeps, and a bound on what a damaged file can cost.
inline constexpr std::uint64_t kProtectListMaxBytes = 4 * 1024 * 1024;
StoredProtectList loadProtectList(const std::string& path, const Facts& facts = Facts::real());

struct BuiltInProtection {
    std::string id;
    std::string label;
    std::string why;
    std::vector<std::string> patterns;  // relative to the home unless they begin with "/"
    std::vector<std::string> parents;
    std::vector<std::string> keywords;  // lower case, sought in a parent's direct child
    std::set<std::string> except;       // names that lift a pattern match
    bool operator==(const BuiltInProtection&) const = default;
};
const std::vector<BuiltInProtection>& builtInProtections();

struct RunningApp {
    std::string bundleID;
    std::string name;
    std::optional<std::string> teamID;
    bool operator==(const RunningApp&) const = default;
};

namespace protection_case {
struct User {
    ProtectEntry entry;
    bool operator==(const User&) const = default;
};
struct InUse {
    std::string appName;
    bool operator==(const InUse&) const = default;
};
struct BuiltIn {
    BuiltInProtection protection;
    bool operator==(const BuiltIn&) const = default;
};
}  // namespace protection_case

// In the order of precedence.
struct Protection {
    std::variant<protection_case::User, protection_case::InUse, protection_case::BuiltIn> value;
    bool isLock() const;
    std::string line() const;
    bool operator==(const Protection&) const = default;
};

// Comparison key: standardised, the system's /private spellings folded, no trailing "/", lower case.
std::string protectKey(std::string_view path);
bool pathIsAtOrInside(std::string_view path, std::string_view root);
// Component patterns: "*" is one component of any text; extra path components are free.
bool pathMatches(std::string_view pattern, std::string_view path);

std::vector<std::string> appProtectedRoots(const std::string& bundleID, const std::string& appName,
                                           const std::optional<std::string>& appPath, const std::string& home);
// No regular expression and no disk access: rows of a scan ask this one by one.
std::optional<BuiltInProtection> builtInProtection(std::string_view path, const std::string& home);
std::optional<std::string> groupContainerUser(std::string_view path, const std::vector<RunningApp>& running,
                                              const std::string& home);
std::optional<Protection> protection(std::string_view path, const ProtectList& list,
                                     const std::set<std::string>& hidden, const std::vector<RunningApp>& running,
                                     const std::string& home);
std::vector<std::string> userProtectedInside(std::string_view path, const ProtectList& list,
                                             const std::set<std::string>& hidden);
// The sentence that stops an action, or none: locks only, and protected things inside a folder.
std::optional<std::string> protectionRefusal(std::string_view path, const ProtectList& list,
                                             const std::set<std::string>& hidden,
                                             const std::vector<RunningApp>& running, const std::string& home);
// As above under the list as stored: an unreadable list refuses every path.
std::optional<std::string> protectionRefusal(std::string_view path, const StoredProtectList& stored,
                                             const std::set<std::string>& hidden,
                                             const std::vector<RunningApp>& running, const std::string& home);
bool contentsClearMayRemove(std::string_view child, const ProtectList& list, const std::set<std::string>& hidden,
                            const std::vector<RunningApp>& running, const std::string& home);
SpaceItem applyingProtection(SpaceItem item, const std::optional<Protection>& protection);

}  // namespace orvane
