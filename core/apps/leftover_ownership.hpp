// Whether anything still installed could own a name found in a Library folder. A wrong "orphan"
// deletes a live app's data while a wrong "owned" only leaves a file behind, so every doubt keeps
// the name: none from orphanOwner, true from the ...Owned tests, false from the ...Offered ones.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/apps/finder_only_files.hpp"

namespace orvane {

// The system's identifiers and those of frameworks embedded in many apps: never offered. A name
// matches an entry it equals or extends after a ".".
inline constexpr std::array<std::string_view, 14> orphanDenylistPrefixes = {
    "com.apple",
    "is.workflow",
    "org.sparkle-project",
    "com.google.keystone",
    "com.google.softwareupdate",
    "com.microsoft.autoupdate",
    "com.microsoft.errorreporting",
    "com.microsoft.office.licensing",
    "com.paddle",
    "com.juce",
    "org.swift",
    "org.cups",
    "com.nativeinstruments",
    "com.roli",
};

// Last components that mark a helper of an app rather than the app.
inline constexpr std::array<std::string_view, 21> helperBundleSuffixes = {
    "helper",
    "agent",
    "daemon",
    "service",
    "xpc",
    "launcher",
    "updater",
    "autoupdate",
    "installer",
    "uninstaller",
    "login",
    "loginitem",
    "extension",
    "plugin",
    "framework",
    "quicklook",
    "finderextension",
    "shareextension",
    "notificationservice",
    "widget",
    "watchdog",
};

// The folders, under the home and on the machine, whose direct entries orphanOwner judges.
inline constexpr std::array<std::string_view, 13> orphanUserDirs = {
    "Library/Preferences",
    "Library/Preferences/ByHost",
    "Library/Caches",
    "Library/Application Support",
    "Library/Containers",
    "Library/HTTPStorages",
    "Library/WebKit",
    "Library/Cookies",
    "Library/Saved Application State",
    "Library/Application Scripts",
    "Library/Logs",
    "Library/LaunchAgents",
    "Library/Group Containers",
};
inline constexpr std::array<std::string_view, 7> orphanSystemDirs = {
    "/Library/Preferences",
    "/Library/Application Support",
    "/Library/Caches",
    "/Library/Logs",
    "/Library/LaunchDaemons",
    "/Library/LaunchAgents",
    "/Library/PrivilegedHelperTools",
};

// A folder with no reverse-DNS name that is known to be one app's, by the app's names and
// identifiers. No other such folder is ever offered.
struct FreeformLeftover {
    std::string_view folder;  // compared exactly, case and all
    std::array<std::string_view, 1> names;
    std::array<std::string_view, 1> bundleIDs;
};
inline constexpr std::array<FreeformLeftover, 9> curatedFreeformLeftovers = {{
    {"Vivaldi", {"Vivaldi"}, {"com.vivaldi.vivaldi"}},
    {"Chromium", {"Chromium"}, {"org.chromium.chromium"}},
    {"BraveSoftware", {"Brave Browser"}, {"com.brave.browser"}},
    {"Microsoft Edge", {"Microsoft Edge"}, {"com.microsoft.edgemac"}},
    {"Firefox", {"Firefox"}, {"org.mozilla.firefox"}},
    {"Spotify", {"Spotify"}, {"com.spotify.client"}},
    {"Slack", {"Slack"}, {"com.tinyspeck.slackmacgap"}},
    {"discord", {"Discord"}, {"com.hnc.discord"}},
    {"zoom.us", {"zoom.us"}, {"us.zoom.xos"}},
}};

// Apple's downloadable content in the machine's support folders, lower case.
inline constexpr std::array<std::string_view, 16> appleProContentFolders = {
    "final cut pro",    "final cut pro creator studio",
    "final cut",        "motion",
    "compressor",       "logic",
    "logic pro",        "logic pro x",
    "mainstage",        "garageband",
    "imovie",           "pro applications",
    "proapps",          "apple loops",
    "audio music apps", "apple",
};

// Where plug-ins live: absolute for the machine, relative for the home.
inline constexpr std::array<std::string_view, 23> pluginFolders = {
    "/Library/Audio/Plug-Ins/Components",
    "/Library/Audio/Plug-Ins/VST",
    "/Library/Audio/Plug-Ins/VST3",
    "/Library/Audio/Plug-Ins/CLAP",
    "/Library/Audio/Plug-Ins/MAS",
    "/Library/Audio/Plug-Ins/HAL",
    "/Library/Audio/MIDI Drivers",
    "/Library/Application Support/Avid/Audio/Plug-Ins",
    "/Library/QuickLook",
    "/Library/Spotlight",
    "/Library/PreferencePanes",
    "/Library/Screen Savers",
    "/Library/Internet Plug-Ins",
    "Library/Audio/Plug-Ins/Components",
    "Library/Audio/Plug-Ins/VST",
    "Library/Audio/Plug-Ins/VST3",
    "Library/Audio/Plug-Ins/CLAP",
    "Library/Audio/Plug-Ins/MAS",
    "Library/QuickLook",
    "Library/Spotlight",
    "Library/PreferencePanes",
    "Library/Screen Savers",
    "Library/Internet Plug-Ins",
};

// Lower case.
inline constexpr std::array<std::string_view, 13> pluginExtensions = {
    "component",   "vst",        "vst3",     "clap",  "aaxplugin", "plugin", "driver",
    "qlgenerator", "mdimporter", "prefpane", "saver", "appex",     "bundle",
};

// Team ids of installed apps as written (upper case), or none while they cannot be read: then a
// name that starts with a team id is always kept.
using InstalledTeamIDs = std::optional<std::set<std::string>>;

// The identifier without helper components at its end; three components are never reduced, since
// the last may be the app itself. Empty components are dropped.
std::string baseBundleID(std::string_view id);

// A machine UUID as ByHost preference files carry it, hexadecimal digits in either case.
bool isHardwareUUIDComponent(std::string_view text);

// The normalised identifier of an orphan, or none when the name is owned or not judged (no
// reverse-DNS shape, a denied prefix, an installed team). `installedBundleIDs` are lower case.
std::optional<std::string> orphanOwner(std::string_view entryName,
                                       const std::set<std::string>& installedBundleIDs,
                                       const InstalledTeamIDs& installedTeamIDs);

// The first two components of a reverse-DNS identifier of at least three, none empty.
std::optional<std::string> leftoverVendor(std::string_view id);

// True keeps the name: owned by an installed identifier, its vendor or a claimed app group, or
// not judgeable, or led by a team id. Stricter than orphanOwner, for names that already passed it.
bool reverseDNSLeftoverOwned(std::string_view name, const std::set<std::string>& installedIDs,
                             const std::set<std::string>& claimedGroups);
// The same for identifiers the caller already holds in lower case, looked up rather than lowered
// and scanned one by one: the leftovers pass asks it of thousands of names.
bool reverseDNSLeftoverOwnedLowercase(std::string_view name, const std::set<std::string>& installedIDs,
                                      const std::set<std::string>& claimedGroups);

// Only a curated folder whose app is installed neither by name nor by identifier is offered.
bool freeformLeftoverOffered(std::string_view name, const std::set<std::string>& installedNames,
                             const std::set<std::string>& installedIDs);

// A folder of the machine's Application Support that is Apple's or an owner's (`ownerNames` lower
// case; an owner's name followed by a space and more counts as the owner's).
bool systemSupportFolderOwned(std::string_view name, const std::set<std::string>& ownerNames,
                              const std::set<std::string>& installedIDs);

struct GroupContainerParts {
    std::optional<std::string> team;  // ten upper-case letters or digits
    std::string base;                 // without "group." and "groups."
    bool operator==(const GroupContainerParts&) const = default;
};
GroupContainerParts groupContainerParts(std::string_view name);

// A group container is orphaned only when a team names it, that team has nothing installed, and
// no installed identifier is its base or extends it. There is no vendor rule: the team says whose.
bool isOrphanedGroupContainer(std::string_view name, const InstalledTeamIDs& installedTeams,
                              const std::set<std::string>& installedIDs);

struct ApplicationsEntry {
    std::string name;
    bool isDirectory = false;
    std::optional<std::vector<std::string>> contents;  // none when the folder could not be read
    bool operator==(const ApplicationsEntry&) const = default;
};
// The folders of an Applications folder that hold nothing but Finder's files, in the entries'
// order; never a bundle, "Utilities" or a hidden folder.
std::vector<std::string> emptyApplicationsFolders(std::string_view root,
                                                  const std::vector<ApplicationsEntry>& entries);

}  // namespace orvane
