// Apps that came from a Homebrew cask: which cask installed an app, what its removal involves, and
// handing that removal to Homebrew itself, so that its records never disagree with the disk.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// One installed cask.
struct CaskRecord {
    std::string token;
    std::string caskroom;           // the absolute Caskroom folder it lies in
    std::vector<std::string> apps;  // file names of its bundles, case kept
    bool needsAdmin = false;        // an artifact whose removal asks for an administrator
    std::vector<std::string> zap;   // raw, unexpanded paths of its zap stanza

    // The brew that goes with this Caskroom: "<caskroom>/../bin/brew".
    std::string brewPath() const;
    bool operator==(const CaskRecord&) const = default;
};

// One row of Homebrew's public cask index.
struct CaskEntry {
    std::string token;
    std::string version;
    std::optional<std::string> homepage;
    std::optional<std::string> url;
    bool operator==(const CaskEntry&) const = default;
};

struct CaskArtifacts {
    std::vector<std::string> apps;
    bool needsAdmin = false;
    std::vector<std::string> zap;
    bool operator==(const CaskArtifacts&) const = default;
};

// A program to start as given: no shell, no PATH search, and only this environment.
struct BrewInvocation {
    std::string executable;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
    bool operator==(const BrewInvocation&) const = default;
};

struct InvocationResult {
    std::int32_t status = -1;  // the termination status; -1: it never ran
    std::string output;        // standard output and error as they came, interleaved
    bool operator==(const InvocationResult&) const = default;
};

// A cask name that is safe as a path component and as a command argument.
bool isCaskToken(std::string_view text);

// The apps, the need for an administrator and the zap paths of a cask's artifacts (a JSON array).
// Anything of an unexpected shape is passed over.
CaskArtifacts readArtifacts(const nlohmann::json& artifacts);

// From `.metadata/INSTALL_RECEIPT.json` (its "uninstall_artifacts"); none unless it is JSON of
// the expected shape.
std::optional<CaskRecord> caskRecordFromInstallReceipt(std::string_view data, std::string_view token,
                                                       std::string_view caskroom);
// From a cask's JSON definition (its "artifacts"), as an install from the API keeps it.
std::optional<CaskRecord> caskRecordFromCaskJSON(std::string_view data, std::string_view token,
                                                 std::string_view caskroom);
// From a cask's Ruby source, line by line: the apps and the need for an administrator, never the
// zap paths, which would take a Ruby parser to read.
CaskRecord caskRecordFromRubySource(std::string_view source, std::string_view token, std::string_view caskroom);

// A zap entry of the user's own ("~/...") as a path in `home`; none for anything absolute or that
// would need expanding.
std::optional<std::string> zapPath(std::string_view path, std::string_view home);

// The cask that installed the app: only for an app directly in one of `applicationsRoots`, matched
// by file name with case ignored.
std::optional<CaskRecord> caskForApp(std::string_view appPath, const std::vector<std::string>& applicationsRoots,
                                     const std::vector<CaskRecord>& casks);

// `brew uninstall --cask <token>` with a fixed environment of ten keys, nothing inherited; none
// for a token or a brew path that cannot be trusted.
std::optional<BrewInvocation> brewUninstallInvocation(std::string_view brewPath, std::string_view token,
                                                      std::string_view home, std::string_view user);
// The command as a user would type it.
std::string brewUninstallDisplay(std::string_view token);

// Runs the program to its end or to `timeout` (then SIGTERM and a wait), with standard input on
// the null device and one pipe for both output streams, so that the text keeps their order.
// Invalid UTF-8 in the output is repaired. Blocks the caller for up to `timeout`.
InvocationResult runInvocation(const std::string& executable, const std::vector<std::string>& arguments,
                               const std::map<std::string, std::string>& environment,
                               std::chrono::milliseconds timeout);

// The first of the usual brews that can be run.
std::optional<std::string> homebrewExecutable(const Facts& facts = Facts::real());
// The brew of the first prefix whose Caskroom holds the cask.
std::optional<std::string> homebrewExecutable(std::string_view forCask, const std::vector<std::string>& prefixes,
                                              const Facts& facts = Facts::real());
// The token whose install receipt names the app exactly.
std::optional<std::string> homebrewCask(std::string_view forAppNamed, const std::vector<std::string>& caskrooms,
                                        const Facts& facts = Facts::real());

// The public cask index by lower-cased app file name; the first cask to claim a name keeps it.
// Casks of version "latest" are left out: they cannot be compared.
std::map<std::string, CaskEntry> parseCaskIndex(std::string_view data);
// The index of a download, if the download gave one that holds anything.
std::optional<std::map<std::string, CaskEntry>> acceptedCaskIndex(int status, const std::optional<std::string>& body);

namespace HomebrewCasks {

inline constexpr std::array<std::string_view, 2> defaultCaskrooms = {"/opt/homebrew/Caskroom", "/usr/local/Caskroom"};

// Every cask with an app, Caskroom by Caskroom, by token. A cask is read from its install receipt,
// or failing that from the newest definition kept under `.metadata`.
std::vector<CaskRecord> installed(const std::vector<std::string>& caskrooms, const Facts& facts = Facts::real());
// The cask of an app in /Applications or in the home's Applications.
std::optional<CaskRecord> cask(std::string_view forApp, std::string_view home,
                               const std::vector<std::string>& caskrooms, const Facts& facts = Facts::real());
// Has Homebrew remove the cask (`brewPath`, or the cask's own brew). Status -1 means that brew
// never ran, with the reason as output. Blocks for up to ten minutes.
InvocationResult uninstall(const CaskRecord& cask, const std::optional<std::string>& brewPath, std::string_view home,
                           std::string_view user, const Facts& facts = Facts::real());

}  // namespace HomebrewCasks

}  // namespace orvane
