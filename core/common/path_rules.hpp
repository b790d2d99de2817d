// The path tests every part of the system shares: the comparison form of a path, the places
// that are never deleted, where things start by themselves, and links on the way. The daemon's
// validation, the delete verdicts and the scanner all ask these, so that they agree.
#pragma once

#include <string>
#include <string_view>

#include "core/common/facts.hpp"

namespace orvane {

// What a switched-off launch item's property list carries after its name
// ("x.plist.disabled-by-orvane"): launchd no longer loads it, and taking it off puts the item back
// exactly. The daemon and the front end rename with this one suffix.
inline constexpr std::string_view disabledAgentSuffix = ".disabled-by-orvane";

// The form in which two spellings of one place compare equal, without touching the disk:
// "/System/Volumes/Data//Users/a/" gives "/Users/a", "/tmp" gives "/private/tmp".
std::string canonicalPathForComparison(std::string_view path);

// The lexical clean form of a path on this disk: standardised, compared form, then walkable
// ("/tmp/x" rather than "/private/tmp/x" where there is no /private). The Linux tables are
// written in it.
std::string lexicalForm(std::string_view path, const Facts& facts);

// Places where an item would start by itself or with more right than its owner. `home` may be
// empty. Byte-exact and case-sensitive.
bool isPersistenceLocation(std::string_view path, std::string_view home, RuleSet rules = kHostRuleSet);

// False for "/", the system roots, the home and its ancestors, anything directly under "/", a
// mount point, and with the Linux additions anything under the system's own folders.
bool assertDeletable(std::string_view path, std::string_view home, const Facts& facts = Facts::real());

// True when any step from "/" to the path, the path itself included, is a symlink. Steps that
// cannot be read are passed over.
bool pathTraversesSymlink(std::string_view path, const Facts& facts = Facts::real());

bool isSymlinkPath(std::string_view path, const Facts& facts = Facts::real());

// The Linux additions' own questions, on a path in its lexical form: whether it is or lies under
// a system folder that is never deletable (a drive under /run/media/<user> is not), and whether
// it lies under a place where an administrator may clean what root owns (the clean-up roots and
// removable drives).
bool isUnderLinuxSystemRoot(std::string_view path);
bool isUnderAdministratorCleanupRoot(std::string_view path);

// The folder of the home a path lies in ("/Users/a" for "/Users/a/x"); empty when it lies in
// none. Only /Users/ holds homes on macOS; Linux adds /home/ and root's /root.
std::string_view homeFolderOf(std::string_view path, RuleSet rules);

// Whether `path` lies strictly beneath `dir`, compared as text.
bool startsWithDir(std::string_view path, std::string_view dir);

// The text without one line terminator ending it: where a pattern's "$" may match.
std::string_view beforeFinalLineTerminator(std::string_view text);

}  // namespace orvane
