// orvane update check and update pkg-team: whether a signed, newer version is on offer, and who
// signed a package. Neither downloads nor installs anything: replacing the app is the Mac front
// end's, after these same checks.
#include <memory>

#include "cli/command.hpp"
#include "core/cloud/api_request.hpp"
#include "core/common/base64.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/common/tool_runner.hpp"
#include "core/update/self_update.hpp"
#include "core/update/update_feed.hpp"
#include "core/update/version_order.hpp"

namespace orvane::cli {

namespace {

// A feed is a few lines of JSON and its signature one line; anything larger is not one.
constexpr std::int64_t kFeedBudget = 1'048'576;
constexpr double kFeedTimeout = 30;
constexpr double kPkgutilTimeout = 60;
constexpr std::uint64_t kDefaultsLimit = 1'048'576;

struct CheckOptions {
    std::string feed;
    std::optional<std::string> key;
    std::string installed;
    std::string caFile;
};

struct FetchedFeed {
    std::string data;
    std::optional<std::string> signatureText;  // none when nothing came beside the feed
};

bool isAddress(const std::string& feed) { return feed.find("://") != std::string::npos; }

std::string fetch(const std::string& url, const CheckOptions& options, bool* missing) {
    APIRequest request;
    request.url = url;
    if (!options.caFile.empty()) request.caFile = absolutePath(options.caFile);
    auto outcome = performAPIRequest(request, kFeedTimeout, false, kFeedBudget, false);
    if (const auto* error = std::get_if<OVError>(&outcome)) {
        if (missing) *missing = true;
        return error->msg;
    }
    const auto& response = std::get<APIHTTPResponse>(outcome);
    if (response.status != 200) {
        if (missing) *missing = true;
        return url + " answered with status " + std::to_string(response.status) + ".";
    }
    return response.data;
}

FetchedFeed fetchedFeed(const std::string& url, const CheckOptions& options) {
    if (!safeWebURL(url)) throw OVError(url + " is not an https address; the update information is only read over https.");
    bool failed = false;
    FetchedFeed fetched;
    fetched.data = fetch(url, options, &failed);
    if (failed) throw OVError("The update information cannot be read: " + fetched.data);
    bool noSignature = false;
    std::string signature = fetch(url + std::string(feedSignatureSuffix), options, &noSignature);
    if (!noSignature) fetched.signatureText = std::move(signature);
    return fetched;
}

FetchedFeed feedFromFile(const std::string& typed) {
    const std::string path = absolutePath(typed);
    FetchedFeed fetched;
    auto feed = readFile(path, kFeedBudget);
    if (!feed.bytes && feed.failure == ReadFailure::tooLarge)
        throw OVError(path + " is larger than 1 MiB, more than any update feed.");
    if (!feed.bytes) throw OVError("Cannot read " + path + ": it " + std::string(readFailureClause(feed.failure)) + ".");
    fetched.data = std::move(*feed.bytes);
    auto signature = readFile(path + std::string(feedSignatureSuffix), kFeedBudget);
    if (signature.bytes) fetched.signatureText = std::move(*signature.bytes);
    return fetched;
}

// The feed's address when none is given: a setting may name another one, but only over https.
std::string configuredFeedURL(const Facts& facts) {
    std::optional<std::string> configured;
    const auto read = facts.read(ledgerFile(facts, "user-defaults.json"), kDefaultsLimit);
    const auto parsed = read.bytes ? parseJSONStrictly(*read.bytes) : StrictJSON{};
    if (parsed.value && parsed.value->is_object()) {
        const auto found = parsed.value->find("updateFeedURL");
        if (found != parsed.value->end() && found->is_string()) configured = found->get<std::string>();
    }
    return resolvedUpdateFeedURL(configured, defaultUpdateFeedURL);
}

// The signature travels as Base64 text; text that does not decode is passed on as it is, so
// that it fails as a signature that does not match rather than as a missing one.
std::optional<std::string> signatureBytes(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    const std::string trimmed = trimWhitespace(*text);
    if (trimmed.empty()) return std::string();
    return base64Decoded(trimmed).value_or(trimmed);
}

// The name a download is judged by: the address's last path component, without query or fragment.
std::string downloadName(const std::string& url) {
    return lastPathComponent(url.substr(0, url.find_first_of("?#")));
}

Result runCheck(const CheckOptions& options, const Invocation& in) {
    const std::string source = options.feed.empty() ? configuredFeedURL(in.facts) : options.feed;
    const FetchedFeed fetched = isAddress(source) ? fetchedFeed(source, options) : feedFromFile(source);
    const std::string key = options.key.value_or(std::string(updateFeedPublicKeyBase64));
    const FeedVerdict verdict = verifyFeed(fetched.data, signatureBytes(fetched.signatureText), key);

    Result result;
    result.json = {{"verdict", nullptr}, {"reason", nullptr}, {"version", nullptr}, {"installed", options.installed},
                   {"newer", false}, {"downgrade", false}, {"download", nullptr}, {"notes", nullptr}};
    result.status = kRefused;
    if (const auto* rejected = std::get_if<feed::Rejected>(&verdict)) {
        // What a forged feed says is not shown: none of it can be trusted.
        result.json["verdict"] = "rejected";
        result.json["reason"] = rejected->reason;
        result.line("Rejected: " + rejected->reason + ".");
        result.line("Nothing on offer is shown or installed.");
        return result;
    }
    const bool verified = std::holds_alternative<feed::Verified>(verdict);
    result.json["verdict"] = verified ? "verified" : "unsignedButAllowed";
    result.line(verified ? "Verified: the update information matches its signature."
                         : "Not signed: this build has no update key, so it takes update information as it comes.");

    const auto parsed = parseJSONStrictly(fetched.data);
    if (!parsed.value) throw OVError("The update information is not JSON. " + parsed.error);
    auto decoded = decodeLatest(*parsed.value);
    if (const auto* problem = std::get_if<std::string>(&decoded)) throw OVError(*problem);
    const Latest& latest = std::get<Latest>(decoded);

    const bool newer = isNewerVersion(latest.version, options.installed);
    const bool downgrade = isDowngrade(options.installed, latest.version);
    result.json["version"] = latest.version;
    result.json["newer"] = newer;
    result.json["downgrade"] = downgrade;
    result.line("On offer: " + latest.version + " (installed: " + options.installed + ")" +
                (downgrade ? ", older than the installed version: a downgrade is never installed."
                 : newer   ? ", newer."
                           : ", not newer."));

    const auto download = safeWebURL(latest.download_url);
    if (download) {
        const auto kind = enclosureKind(downloadName(*download));
        result.json["download"] = {{"url", *download}, {"kind", rawValue(kind)}};
        result.line("Download: " + *download + " (" + std::string(rawValue(kind)) + ")");
    } else {
        result.line("Download: refused, " + latest.download_url + " is not an https address.");
    }
    if (latest.notes) {
        result.json["notes"] = *latest.notes;
        if (!latest.notes->empty()) result.line("Notes: " + *latest.notes);
    }
    if (const auto notesURL = safeWebURL(latest.notes_url)) result.line("Release notes: " + *notesURL);

    if (newer && !downgrade && download) result.status = kDone;
    return result;
}

Result runPkgTeam(const std::string& typed, const Invocation& in) {
    const std::string package = absolutePath(typed);
    const auto run = in.facts.run("/usr/sbin/pkgutil", {"--check-signature", package}, kPkgutilTimeout, false,
                                  ToolErrors::discarded);
    const auto team = teamIDFromPkgSignature(joinedLines(run.lines));
    Result result;
    result.json = {{"package", package}, {"team", team ? nlohmann::ordered_json(*team) : nlohmann::ordered_json(nullptr)}};
    if (team) {
        result.line("Signed for team " + *team + ".");
    } else {
        result.status = kRefused;
        result.line(run.status == -1 ? "No team: pkgutil, which reads a package's signature, is not on this system."
                                     : "No team: the package is not signed with a Developer ID.");
    }
    return result;
}

}  // namespace

void addUpdateCommands(Registry& registry) {
    auto* update = registry.group("update", "Check the signed update feed and the signer of packages (nothing is installed)");
    auto options = std::make_shared<CheckOptions>();
    options->installed = std::string(kProgramVersion);
    auto* check = registry.add(
        *update, "check",
        "Read the update feed and check its Ed25519 signature, which is published beside it as Base64 text at "
        "its address + \".sig\". FEED is a file (its signature in FEED.sig) or an https address; without it, "
        "the address set as \"updateFeedURL\" in the user defaults, else the built-in one. Prints the verdict, "
        "the version on offer against the installed one, and the download address. Nothing is downloaded. "
        "Exit 0 when a signed, newer version with an https download is on offer; 1 when the feed is rejected or "
        "nothing newer is on offer; 2 when the feed cannot be read or is not an update feed.",
        [options](const Invocation& in) { return runCheck(*options, in); });
    check->add_option("FEED", options->feed, "The feed: a file or an https address");
    check->add_option("--key", options->key, "The Ed25519 public key as Base64 text, instead of the built-in one "
                                             "(an empty key takes unsigned feeds)")
        ->type_name("BASE64");
    check->add_option("--installed", options->installed, "The version to compare with (default: this program's)")
        ->type_name("VERSION");
    check->add_option("--cacert", options->caFile, "Trust the certificate authorities in FILE instead of the system's")
        ->type_name("FILE");

    auto package = std::make_shared<std::string>();
    auto* pkgTeam = registry.add(
        *update, "pkg-team",
        "Print the team that signed an installer package, from the first Developer ID certificate that "
        "`pkgutil --check-signature` lists. Exit 1 when there is none.",
        [package](const Invocation& in) { return runPkgTeam(*package, in); });
    pkgTeam->add_option("PKG", *package, "The package")->required();
}

}  // namespace orvane::cli
