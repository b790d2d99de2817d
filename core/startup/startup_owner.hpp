// Whose a launch job is: the installed app that owns it and on what evidence, or how its owner was
// lost; and what an app bundle carries inside itself that could start in the background.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// An app as ownership works with it. `bundleID` is "" when unknown.
struct AppRef {
    std::string path;
    std::string name;
    std::string bundleID;
    bool operator==(const AppRef&) const = default;
    auto operator<=>(const AppRef&) const = default;
};

// How sure an attribution is, strongest first.
enum class OwnerEvidence { programInside, associatedBundle, labelFamily };
template <>
struct RawValues<OwnerEvidence> {
    static constexpr std::array<std::pair<OwnerEvidence, std::string_view>, 3> table = {{
        {OwnerEvidence::programInside, "programInside"},
        {OwnerEvidence::associatedBundle, "associatedBundle"},
        {OwnerEvidence::labelFamily, "labelFamily"},
    }};
};

namespace startup_owner {
struct App {
    AppRef app;
    OwnerEvidence how = OwnerEvidence::programInside;
    bool operator==(const App&) const = default;
};
// The program lies in an app bundle that no longer exists.
struct AppGone {
    std::string appPath;
    bool operator==(const AppGone&) const = default;
};
// The program lies in an app bundle in the user's Trash.
struct AppInTrash {
    std::string appPath;
    bool operator==(const AppInTrash&) const = default;
};
// launchd names the app that registered the job, and that app is not installed.
struct RegisteredAppMissing {
    std::string bundleID;
    bool operator==(const RegisteredAppMissing&) const = default;
};
// The program's path does not exist and no app could be linked.
struct ProgramMissing {
    std::string program;
    bool operator==(const ProgramMissing&) const = default;
};
struct Unknown {
    bool operator==(const Unknown&) const = default;
};
}  // namespace startup_owner

struct StartupOwner {
    using Case = std::variant<startup_owner::App, startup_owner::AppGone, startup_owner::AppInTrash,
                              startup_owner::RegisteredAppMissing, startup_owner::ProgramMissing,
                              startup_owner::Unknown>;
    Case value = startup_owner::Unknown{};
    bool operator==(const StartupOwner&) const = default;
};

// The enumeration form: {"app":{"_0":{"path","name","bundleID"},"how":"associatedBundle"}},
// {"appGone":{"appPath":…}}, {"appInTrash":{"appPath":…}}, {"registeredAppMissing":{"bundleID":…}},
// {"programMissing":{"_0":…}}, {"unknown":{}}.
nlohmann::ordered_json toJSON(const StartupOwner& owner);
// One phrase for a person: "Foo", "its app is gone (/Applications/Foo.app)", "unknown", ….
std::string describe(const StartupOwner& owner);

struct EmbeddedBackgroundItem {
    enum class Kind { loginItem, agent, daemon };
    Kind kind = Kind::agent;
    std::string label;  // the launchd label, or a login item's bundle identifier
    std::string path;   // the helper app or the property list inside the bundle
    std::optional<std::string> program;
    bool stoppableAsUser() const { return kind != Kind::daemon; }
    bool operator==(const EmbeddedBackgroundItem&) const = default;
};
template <>
struct RawValues<EmbeddedBackgroundItem::Kind> {
    static constexpr std::array<std::pair<EmbeddedBackgroundItem::Kind, std::string_view>, 3> table = {{
        {EmbeddedBackgroundItem::Kind::loginItem, "loginItem"},
        {EmbeddedBackgroundItem::Kind::agent, "agent"},
        {EmbeddedBackgroundItem::Kind::daemon, "daemon"},
    }};
};

// Decides in a fixed order, the first deciding step ending it: the bundle the program lies in
// (trashed, installed, present, gone), then the declared bundle identifiers, then the label's
// family (the longest installed identifier it extends), then what is missing.
StartupOwner startupOwner(const std::optional<std::string>& program, const std::vector<std::string>& associatedBundleIDs,
                          std::string_view label, const std::vector<AppRef>& installedApps,
                          const std::function<bool(const std::string&)>& exists, const std::optional<std::string>& home,
                          const std::optional<std::string>& registeredBy);
// The same with the file system's test of existence (links followed), through `facts`.
StartupOwner startupOwner(const std::optional<std::string>& program, const std::vector<std::string>& associatedBundleIDs,
                          std::string_view label, const std::vector<AppRef>& installedApps,
                          const std::optional<std::string>& home, const std::optional<std::string>& registeredBy,
                          const Facts& facts = Facts::real());

// The outermost ".app" bundle on the way to an absolute path, in its original case; helpers
// belong to the app that carries them.
std::optional<std::string> enclosingAppBundle(std::string_view path);

// Login items, agents and daemons inside a bundle, in kind then label order, one per kind and
// label. Whatever cannot be listed or read is skipped without a word.
std::vector<EmbeddedBackgroundItem> embeddedBackgroundItems(const std::string& bundle, const Facts& facts = Facts::real());
// The labels a user process can act on (login items and agents), sorted.
std::vector<std::string> embeddedHelperLabels(const std::string& bundle, const Facts& facts = Facts::real());

// The program a registered job runs: BundleProgram, Program, then the first of ProgramArguments;
// empties skipped.
std::optional<std::string> launchdProgram(const nlohmann::json& plist);

}  // namespace orvane
