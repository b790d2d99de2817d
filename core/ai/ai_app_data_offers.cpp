#include "core/ai/ai_app_data_offers.hpp"

#include <algorithm>

#include "core/common/path.hpp"

namespace orvane {

namespace {

constexpr std::string_view kVolumes = "/Volumes/";
constexpr std::uint64_t kPointerFileBound = 1 << 20;

// " Also used by A, B: keep it unless you're removing those too.", or nothing without sharers.
std::string sharingSuffix(const std::vector<std::string>& sharers) {
    if (sharers.empty()) return "";
    std::string names = sharers[0];
    if (sharers.size() > 1) names += ", " + sharers[1];
    return " Also used by " + names + ": keep it unless you're removing " + (sharers.size() == 1 ? "that" : "those") +
           " too.";
}

// The name of the drive a "/Volumes/NAME/..." path is on.
std::string driveName(std::string_view path) {
    const auto parts = pathComponents(path);
    return parts.size() >= 2 ? parts[1] : "an external drive";
}

// A table path made absolute: none for "{home}" without an anchor, and for any other form.
std::optional<std::string> expand(std::string_view path, std::string_view home, const std::optional<std::string>& anchor) {
    if (path.starts_with("{home}")) {
        if (!anchor) return std::nullopt;
        return *anchor + std::string(path.substr(6));
    }
    if (path.starts_with("~/")) return std::string(home) + std::string(path.substr(1));
    if (path.starts_with("/")) return std::string(path);
    return std::nullopt;
}

}  // namespace

std::vector<AIAppDataOffer> aiAppDataOffers(std::string_view appName, std::string_view bundleID,
                                            const std::optional<std::string>& teamID,
                                            const std::vector<AIOtherApp>& others, std::string_view home,
                                            const std::set<std::string>& mountedVolumes, const AIDataRead& read,
                                            const AIDataExists& exists, const AIDataResolve& resolve,
                                            const std::vector<AIAppDataRule>& rules) {
    const auto rule = aiAppDataRule(bundleID, teamID, appName, rules);
    if (!rule) return {};

    std::vector<std::string> sharers;
    for (const auto& other : others)
        if (const auto theirs = aiAppDataRule(other.bundleID, other.teamID, other.name, rules);
            theirs && theirs->ecosystem == rule->ecosystem)
            sharers.push_back(other.name);
    const std::string suffix = sharingSuffix(sharers);

    // The product's home as far as known: a home pointer may replace it.
    std::optional<std::string> anchor;
    if (rule->defaultHome && (rule->defaultHome->starts_with("~/") || rule->defaultHome->starts_with("/")))
        anchor = expand(*rule->defaultHome, home, std::nullopt);

    std::vector<AIAppDataOffer> offers;
    const auto offered = [&](const std::string& path) {
        return std::any_of(offers.begin(), offers.end(), [&](const AIAppDataOffer& o) { return o.path == path; });
    };

    for (const auto& pointer : rule->pointers) {
        const auto file = expand(pointer.file, home, anchor);
        if (!file) continue;
        const auto contents = read(*file);
        if (!contents) continue;
        const auto value = readAIDataPointer(pointer.format, *contents);
        if (!value) continue;
        const auto target = judgeAIDataTarget(*value, home, mountedVolumes, resolve);
        if (!target) continue;
        const std::string& p = target->path;
        if (target->kind == AIDataTarget::Kind::externalNotConnected) {
            if (!offered(p))
                offers.push_back({p,
                                  pointer.note + " It's on " + driveName(p) +
                                      ", which isn't connected: connect it and open this review again to include it." +
                                      suffix,
                                  true, false, false});
            continue;
        }
        if (pointer.replacesHome) anchor = p;
        std::string note = pointer.note;
        if (p.starts_with(kVolumes)) note += " On the external drive " + driveName(p) + ".";
        if (!offered(p) && exists(p)) offers.push_back({p, note + suffix, false, sharers.empty(), pointer.replacesHome});
    }

    for (const auto& location : rule->locations) {
        const auto path = expand(location.path, home, anchor);
        if (!path || offered(*path) || !exists(*path)) continue;
        if (location.shared)
            offers.push_back({*path,
                              location.note +
                                  " Shared by other AI tools (Python and command-line tools use it too): kept unless "
                                  "you tick it.",
                              false, false, false});
        else
            offers.push_back({*path, location.note + suffix, false, sharers.empty(), location.path == "{home}"});
    }
    return offers;
}

std::set<std::string> mountedVolumeNames(const Facts& facts) {
    std::set<std::string> names;
    if (const auto entries = facts.list("/Volumes"))
        for (const auto& entry : *entries) names.insert(entry.name);
    return names;
}

std::vector<AIAppDataOffer> aiAppDataOffers(std::string_view appName, std::string_view bundleID,
                                            const std::optional<std::string>& teamID,
                                            const std::vector<AIOtherApp>& others, const Facts& facts) {
    return aiAppDataOffers(
        appName, bundleID, teamID, others, facts.home(""), mountedVolumeNames(facts),
        [&](const std::string& path) { return facts.read(path, kPointerFileBound).bytes; }, facts.exists,
        facts.resolve);
}

}  // namespace orvane
