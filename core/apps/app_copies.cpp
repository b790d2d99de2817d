#include "core/apps/app_copies.hpp"

#include <algorithm>
#include <cstdint>
#include <map>

#include "core/apps/app_bundle_inventory.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"
#include "core/platform/platform.hpp"

namespace orvane {
namespace {

std::uint32_t bigEndian32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

std::uint32_t littleEndian32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i > 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
    return value;
}

std::string cpuName(std::uint32_t type) {
    switch (type) {
        case 7:
            return "i386";
        case 12:
            return "arm";
        case 18:
        case 0x1000012:
            return "ppc";
        case 0x1000007:
            return "x86_64";
        case 0x100000C:
            return "arm64";
        case 0x200000C:
            return "arm64_32";
        default:
            return "cpu" + std::to_string(type);
    }
}

bool inATrash(std::string_view path) {
    return path.find("/.Trash/") != std::string_view::npos ||
           path.find("/.Trashes/") != std::string_view::npos;
}

}  // namespace

std::vector<std::vector<AppCopy>> duplicateAppGroups(const std::vector<AppCopy>& copies) {
    std::map<std::string, std::vector<AppCopy>> byID;
    for (const AppCopy& copy : copies) {
        if (copy.bundleID.empty()) continue;
        // What lies before the bundle's own ".app": a bundle in there is part of another app.
        const std::string_view outside = std::string_view(copy.path).substr(
            0, copy.path.size() - std::min<std::size_t>(4, copy.path.size()));
        if (outside.find(".app/") != std::string_view::npos) continue;
        byID[copy.bundleID].push_back(copy);
    }
    std::vector<std::vector<AppCopy>> groups;
    for (auto& [id, group] : byID) {
        if (group.size() < 2) continue;
        std::sort(group.begin(), group.end(),
                  [](const AppCopy& a, const AppCopy& b) { return a.path < b.path; });
        groups.push_back(std::move(group));
    }
    // The map's order is the ids' byte order, which is the order of each group's first id.
    return groups;
}

std::set<std::string> machOArchitectures(std::string_view bytes) {
    std::set<std::string> names;
    if (bytes.size() < 8) return names;
    const std::uint32_t magic = bigEndian32(bytes, 0);
    if ((magic & ~1u) == 0xCAFEBABE) {
        const std::size_t entrySize = magic == 0xCAFEBABF ? 32 : 20;
        const std::uint32_t count = bigEndian32(bytes, 4);
        // Java class files share the magic; their version number lands where the count is, and
        // is never below 45, so a bound on the count tells the two apart.
        if (count < 1 || count > 19) return names;
        for (std::size_t i = 0; i < count; ++i) {
            if (bytes.size() < i * entrySize + 12) break;
            names.insert(cpuName(bigEndian32(bytes, 8 + i * entrySize)));
        }
        return names;
    }
    if (const std::uint32_t little = littleEndian32(bytes, 0);
        little == 0xFEEDFACE || little == 0xFEEDFACF) {
        names.insert(cpuName(littleEndian32(bytes, 4)));
        return names;
    }
    if ((magic & ~1u) == 0xFEEDFACE) names.insert(cpuName(bigEndian32(bytes, 4)));
    return names;
}

std::set<std::string> appArchitectures(const std::string& appPath, const Facts& facts) {
    const auto info = readPropertyListDictionary(appPath + "/Contents/Info.plist", facts);
    if (!info) return {};
    return appArchitectures(appPath, *info, facts);
}

std::set<std::string> appArchitectures(const std::string& appPath, const nlohmann::json& info, const Facts& facts) {
    const auto executable = plistString(info, "CFBundleExecutable");
    // A name with a slash would lead the read out of Contents/MacOS.
    if (!executable || executable->empty() || executable->find('/') != std::string::npos) return {};
    const FileRead head =
        facts.readHead(appPath + "/Contents/MacOS/" + *executable, kMachOHeaderBytes);
    if (!head.bytes) return {};
    return machOArchitectures(*head.bytes);
}

Macos27Verdict macos27Verdict(const std::set<std::string>& architectures) {
    if (architectures.empty()) return Macos27Verdict::unknown;
    if (architectures.contains("arm64")) return Macos27Verdict::fine;
    if (architectures.contains("x86_64")) return Macos27Verdict::intelOnly;
    for (const char* old : {"i386", "ppc", "arm"})
        if (architectures.contains(old)) return Macos27Verdict::thirtyTwoBit;
    return Macos27Verdict::unknown;
}

bool isAppleSiliconMac() {
    return platform::isAppleSilicon();
}

std::vector<KernelExtension> thirdPartyKernelExtensions(const std::string& folder,
                                                        const Facts& facts) {
    std::vector<std::string> names;
    for (const auto& entry : facts.list(folder).value_or(std::vector<FolderEntry>{}))
        names.push_back(entry.name);
    std::sort(names.begin(), names.end());
    std::vector<KernelExtension> found;
    for (const std::string& name : names) {
        if (!name.ends_with(".kext")) continue;
        const auto info =
            readPropertyListDictionary(folder + "/" + name + "/Contents/Info.plist", facts);
        std::string id = info ? plistString(*info, "CFBundleIdentifier").value_or("") : "";
        if (lowercased(id).starts_with("com.apple.")) continue;
        found.push_back({name.substr(0, name.size() - 5), std::move(id)});
    }
    return found;
}

std::vector<std::string> installedCopies(const std::string& bundleID, const std::string& home,
                                         const Facts& facts) {
    if (bundleID.empty()) return {};
    const std::string wanted = lowercased(bundleID);
    // LaunchServices (LSCopyApplicationURLsForBundleIdentifier) would also name copies outside
    // these folders, but asking it takes the macOS frameworks, which this library doesn't link:
    // only the walk is done. The set keeps the form that a second source of paths would need.
    std::set<std::string> copies;
    for (const std::string& root :
         {std::string("/Applications"), appendingPathComponent(home, "Applications")}) {
        const auto found =
            appBundleInventory(root, kInstalledAppsMaxDepth, kInstalledAppsBudget, facts);
        for (const std::string& path : found.paths)
            if (!inATrash(path) && lowercased(bundleIdentifier(path, facts)) == wanted)
                copies.insert(path);
    }
    return {copies.begin(), copies.end()};
}

}  // namespace orvane
