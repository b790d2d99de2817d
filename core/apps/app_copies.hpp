// What can be told of an installed app from its bundle alone: which apps are installed twice,
// which processors an app is built for and so whether it will run on macOS 27, and which kernel
// extensions are not Apple's.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/common/facts.hpp"
#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// One app bundle found on disk. Where version and date come from is the caller's business.
struct AppCopy {
    std::string path;      // absolute
    std::string bundleID;  // "" when unknown
    std::optional<std::string> version;
    std::optional<TimePoint> modified;
    bool operator==(const AppCopy&) const = default;
};

// The apps installed more than once: groups of two or more copies sharing a bundle id (compared
// exactly), each sorted by path, the groups by that id. Copies without an id, and copies inside
// another bundle (a helper app shipped within its main app), are no one's duplicates.
std::vector<std::vector<AppCopy>> duplicateAppGroups(const std::vector<AppCopy>& copies);

// The processors a Mach-O file's header names: every slice of a universal file, the one of a
// thin file in either byte order. Anything else, or too little of it, gives none; a universal
// header cut short gives the slices it still holds. Types without a name read "cpu<number>".
std::set<std::string> machOArchitectures(std::string_view bytes);

// The Mach-O header bytes needed: a universal file's table of 19 64-bit slices fits well within.
inline constexpr std::uint64_t kMachOHeaderBytes = 4096;

// machOArchitectures of the app's main executable, as its Info.plist names it. Any failure
// (no plist, an executable name holding "/", nothing readable) gives none.
std::set<std::string> appArchitectures(const std::string& appPath,
                                       const Facts& facts = Facts::real());
// The same with the bundle's Info.plist already read, as a list that shows more of it does.
std::set<std::string> appArchitectures(const std::string& appPath, const nlohmann::json& info,
                                       const Facts& facts = Facts::real());

// How an app stands for macOS 27, judged by the processors it is built for.
enum class Macos27Verdict {
    fine,          // built for arm64, whatever else it holds
    intelOnly,     // x86_64 without arm64: it needs Rosetta
    thirtyTwoBit,  // only 32-bit code
    unknown,       // nothing readable, or only processors that tell nothing (arm64_32)
};
template <>
struct RawValues<Macos27Verdict> {
    static constexpr std::array<std::pair<Macos27Verdict, std::string_view>, 4> table = {{
        {Macos27Verdict::fine, "fine"},
        {Macos27Verdict::intelOnly, "intelOnly"},
        {Macos27Verdict::thirtyTwoBit, "thirtyTwoBit"},
        {Macos27Verdict::unknown, "unknown"},
    }};
};
Macos27Verdict macos27Verdict(const std::set<std::string>& architectures);

// Whether this Mac has an Apple processor; false off macOS.
bool isAppleSiliconMac();

struct KernelExtension {
    std::string name;      // the ".kext" file name without its extension
    std::string bundleID;  // "" when its Info.plist could not be read
    bool operator==(const KernelExtension&) const = default;
};
// The ".kext" bundles of `folder` whose identifier is not Apple's, by name. One whose plist can't
// be read stays listed: not knowing whose it is is no proof that it is Apple's. A folder that
// can't be listed holds none.
std::vector<KernelExtension> thirdPartyKernelExtensions(const std::string& folder,
                                                        const Facts& facts = Facts::real());

// Every bundle in /Applications and `home`/Applications whose identifier equals `bundleID`, case
// ignored, outside any Trash; sorted. The walk's budget can leave a copy unfound, and nothing here
// says so. On macOS LaunchServices also knows copies elsewhere; this finds only what the walk does.
std::vector<std::string> installedCopies(const std::string& bundleID, const std::string& home,
                                         const Facts& facts = Facts::real());

}  // namespace orvane
