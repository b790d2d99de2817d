// orvane genuine: whether an app is what it says it is: who signed it, whether the signature
// holds, whether the signer is the vendor its name claims, and where the copy came from.
#include <filesystem>

#include "cli/command.hpp"
#include "core/authenticity/genuine.hpp"
#include "core/authenticity/genuine_check.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/variant_visit.hpp"

namespace orvane::cli {
namespace {

// A cache of a few hundred reports; anything larger is not ours.
constexpr std::uint64_t kCacheLimit = 16 * 1024 * 1024;

struct GenuineOptions {
    std::string app;
    bool online = false;
};

// Reports kept by bundle path, each with the key that must still stand for it to be reused.
nlohmann::json loadCache(const std::string& file) {
    const FileRead read = readFile(file, kCacheLimit);
    if (!read.bytes) return nlohmann::json::object();
    auto parsed = parseJSONStrictly(*read.bytes);
    return parsed.value && parsed.value->is_object() ? *parsed.value : nlohmann::json::object();
}

std::optional<GenuineReport> cachedReport(const nlohmann::json& cache, const std::string& app,
                                          const std::optional<GenuineCacheKey>& key) {
    if (!key) return std::nullopt;
    const auto entry = cache.find(app);
    if (entry == cache.end() || !entry->is_object() || !entry->contains("key") || !entry->contains("report"))
        return std::nullopt;
    if (genuineCacheKeyFromJSON((*entry)["key"]) != key) return std::nullopt;
    return genuineReportFromJSON((*entry)["report"]);
}

std::string tierWord(const std::optional<GenuineTier>& tier) {
    return tier ? std::string(rawValue(*tier)) : "no verdict (the signature could not be checked)";
}

std::string vendorLine(const VendorMatch& vendor) {
    return std::visit(
        Overloaded{[](const vendor_match::Matches& m) { return "signed by " + m.vendor + "'s own team (" + m.teamID + ")"; },
                   [](const vendor_match::MatchesUnverified& m) {
                       return "signed by a team listed for " + m.vendor + " (" + m.teamID + "), not yet confirmed";
                   },
                   [](const vendor_match::Mismatch& m) {
                       return "named like " + m.vendor + "'s app, but signed by " +
                              (m.actual ? "team " + *m.actual : std::string("no team")) + ", not " + m.vendor;
                   },
                   [](const vendor_match::NotListed&) { return std::string("not a vendor this check knows"); }},
        vendor.value);
}

Result runGenuine(const GenuineOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string app = standardizePath(absolutePath(options.app));
    const auto bundle = facts.lstat(app);
    const auto info = facts.lstat(appendingPathComponent(app, "Contents/Info.plist"));
    if (!bundle || !bundle->isDirectory() || !info || !info->isRegularFile())
        throw OVError(app + " is not an app bundle: a folder with Contents/Info.plist.");
    const std::string appName = deletingPathExtension(lastPathComponent(app));
    const std::string home = facts.home("");

    // A recording is read, never written to: its reports are made fresh each time.
    const std::string cacheFile = ledgerFile(facts, "genuine-cache.json");
    nlohmann::json cache = facts.recorded ? nlohmann::json::object() : loadCache(cacheFile);
    const auto key = GenuineCacheKey::of(app, facts);
    std::optional<GenuineReport> report = facts.recorded ? std::nullopt : cachedReport(cache, app, key);
    if (!report) {
        in.progress.show("Checking the signature…");
        report = GenuineCheck::offline(app, appName, bundleIdentifier(app, facts), home, facts);
        if (!facts.recorded && key) {
            cache[app] = {{"key", toJSON(*key)}, {"report", toJSON(*report)}};
            std::error_code ignored;  // a cache that cannot be kept only costs the next check its time
            std::filesystem::create_directories(deletingLastPathComponent(cacheFile), ignored);
            writeFileAtomically(cacheFile, cache.dump(2) + "\n", 0600);
        }
    }
    std::optional<OnlineGenuineResult> online;
    if (options.online) {
        in.progress.show("Asking Gatekeeper…");
        online = GenuineCheck::online(app, facts);
    }
    const auto tier = options.online ? report->tier(online) : report->tier();
    const bool revokedOnline = online && std::holds_alternative<signature_state::Revoked>(online->signature.value);
    const std::string summary =
        genuineSignerSummary(*report, online ? std::optional(online->notarized) : std::nullopt, revokedOnline);

    Result result;
    result.line(appName + ": " + tierWord(tier));
    result.line("  " + summary);
    result.line("  Vendor: " + vendorLine(report->vendor));
    if (report->download) {
        const auto& d = *report->download;
        std::string from = "  Downloaded";
        if (d.agent) from += " with " + *d.agent;
        if (d.date) from += " on " + iso8601(*d.date);
        if (d.pageURL) from += " from " + *d.pageURL;
        else if (d.url) from += " from " + *d.url;
        result.line(from);
    }
    if (online && online->gatekeeperAccepted)
        result.line(std::string("  Gatekeeper: ") + (*online->gatekeeperAccepted ? "accepted" : "rejected") +
                    (online->gatekeeperSource ? " (" + *online->gatekeeperSource + ")" : ""));

    nlohmann::ordered_json json = toJSON(*report);
    json["tier"] = tier ? nlohmann::ordered_json(rawValue(*tier)) : nlohmann::ordered_json(nullptr);
    json["summary"] = summary;
    if (online) json["online"] = toJSON(*online);
    result.json = std::move(json);
    result.status = tier == GenuineTier::gold || tier == GenuineTier::green ? kDone : kRefused;
    return result;
}

}  // namespace

void addGenuineCommand(Registry& registry) {
    auto options = std::make_shared<GenuineOptions>();
    auto* genuine = registry.add(
        "genuine",
        "Whether an app is genuine: who signed it, whether the signature holds and Apple notarised it, whether "
        "the signer is the vendor its name or identifier claims (a copy of a well-known app signed by someone "
        "else is red), and where it was downloaded from. Tiers: gold, green, amber, red. Exit 0 for gold or "
        "green, 1 otherwise, 2 when APP is not an app bundle.",
        [options](const Invocation& in) { return runGenuine(*options, in); });
    genuine->add_option("APP", options->app, "The app bundle, such as \"/Applications/Name.app\"")->required();
    genuine->add_flag("--online", options->online, "Also ask Apple about revocation and notarisation (spctl)");
}

}  // namespace orvane::cli
