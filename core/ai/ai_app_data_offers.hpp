// The offers made when an AI app is removed: the paths its rule and its pointer files lead to,
// each judged before it is offered, with a note that says what it is and who else uses it.
// Pure logic on injected facts; the overload on Facts hands in the disk (or a recorded Mac).
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/ai/ai_app_data_rules.hpp"
#include "core/common/facts.hpp"

namespace orvane {

// A path offered for removal with an app.
struct AIAppDataOffer {
    std::string path;
    std::string note;
    bool notConnected = false;  // on a drive that isn't mounted: nothing there can be measured or removed
    // For the uninstall's ticks: whether it starts ticked (not when
    // shared with other tools, used by another installed app, or on a drive that is away), and
    // whether it is the product's home (where "{home}" leads).
    bool preselected = false;
    bool isHome = false;
    bool operator==(const AIAppDataOffer&) const = default;
};

// Another installed app: its name, bundle id and team id when known.
struct AIOtherApp {
    std::string name;
    std::string bundleID;
    std::optional<std::string> teamID;
};

using AIDataRead = std::function<std::optional<std::string>(const std::string&)>;  // a file's bytes
using AIDataExists = std::function<bool(const std::string&)>;
using AIDataResolve = std::function<std::optional<std::string>(const std::string&)>;  // links resolved; none when absent

// The offers for an app, pointers first, then the rule's locations, each path once; empty when no
// rule knows the app. Nothing is thrown: what can't be read or is refused yields no offer.
std::vector<AIAppDataOffer> aiAppDataOffers(std::string_view appName, std::string_view bundleID,
                                            const std::optional<std::string>& teamID,
                                            const std::vector<AIOtherApp>& others, std::string_view home,
                                            const std::set<std::string>& mountedVolumes, const AIDataRead& read,
                                            const AIDataExists& exists, const AIDataResolve& resolve,
                                            const std::vector<AIAppDataRule>& rules = aiAppDataRules());

// The names under /Volumes: the drives that count as mounted (none on Linux, where drives are
// mounted elsewhere and so are out of bounds).
std::set<std::string> mountedVolumeNames(const Facts& facts);

// The same offers with the facts' home, mounted volumes and disk; pointer files are read up to
// 1 MiB, and a link in a pointer file's place is not followed.
std::vector<AIAppDataOffer> aiAppDataOffers(std::string_view appName, std::string_view bundleID,
                                            const std::optional<std::string>& teamID,
                                            const std::vector<AIOtherApp>& others, const Facts& facts);

}  // namespace orvane
