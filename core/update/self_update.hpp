// The checks between a verified feed and a new bundle standing where the old one stood: what was
// downloaded, who signed it, whether it may replace the app, and how the finishing copy is told
// what to do. Each is a plain answer; the steps themselves are the Mac front end's.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/raw_value.hpp"

namespace orvane {

enum class EnclosureKind { zip, dmg, tar, pkg, unknown };
template <>
struct RawValues<EnclosureKind> {
    static constexpr std::array<std::pair<EnclosureKind, std::string_view>, 5> table = {{
        {EnclosureKind::zip, "zip"},
        {EnclosureKind::dmg, "dmg"},
        {EnclosureKind::tar, "tar"},
        {EnclosureKind::pkg, "pkg"},
        {EnclosureKind::unknown, "unknown"},
    }};
};

// What a download is, by its name's ending in any case.
EnclosureKind enclosureKind(std::string_view name);

// The team of the first Developer ID certificate in `pkgutil --check-signature` output; the last
// bracketed team on that line, as a signer's name may hold brackets of its own.
std::optional<std::string> teamIDFromPkgSignature(std::string_view text);

// Only a copy signed by the same team under the same identifier replaces the app.
bool selfUpdateSwapPermitted(const std::optional<std::string>& installedBundleID,
                             const std::optional<std::string>& candidateBundleID,
                             const std::optional<std::string>& installedTeamID,
                             const std::optional<std::string>& candidateTeamID);

// Started from a read-only shadow copy: there is nothing to replace.
bool isTranslocatedBundlePath(std::string_view path);

// Both paths are on one file system, so that the swap is one rename.
bool onSameFilesystem(const std::string& a, const std::string& b);

// What the finishing copy is started with: "--finish-update --old PATH --pid N".
struct SelfUpdateHandoff {
    std::string oldBundlePath;
    std::int32_t pid = 0;
    bool operator==(const SelfUpdateHandoff&) const = default;
};
std::optional<SelfUpdateHandoff> parseSelfUpdateHandoff(const std::vector<std::string>& arguments);

// Where the new bundle goes: an app still named "Orvane.app" takes the new name, unless a copy
// already has it.
std::string selfUpdateDestination(const std::string& oldBundlePath, const std::function<bool(const std::string&)>& exists);

}  // namespace orvane
