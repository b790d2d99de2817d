#include "core/authenticity/genuine.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <regex>

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

template <typename T, typename V>
bool is(const V& value) {
    return std::holds_alternative<T>(value.value);
}

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// An object of one key whose value is an object: the form of a case with its payload.
const nlohmann::json* caseBody(const nlohmann::json& value, std::string& name) {
    if (!value.is_object() || value.size() != 1 || !value.begin()->is_object()) return nullptr;
    name = value.begin().key();
    return &*value.begin();
}

std::optional<std::string> bodyString(const nlohmann::json& body, const char* key) {
    auto found = body.find(key);
    if (found == body.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

const nlohmann::ordered_json kEmpty = nlohmann::ordered_json::object();

struct CurlURLFree {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
struct CurlFree {
    void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlFree>;

CurlText urlPart(CURLU* url, CURLUPart part) {
    char* raw = nullptr;
    if (curl_url_get(url, part, &raw, 0) != CURLUE_OK) return CurlText(nullptr);
    return CurlText(raw);
}

std::string signerName(const SignerKind& signer) {
    if (auto* d = std::get_if<signer_kind::DeveloperID>(&signer.value)) return d->name;
    if (auto* o = std::get_if<signer_kind::Other>(&signer.value)) return o->name;
    if (is<signer_kind::AppStore>(signer)) return "the Mac App Store";
    if (is<signer_kind::Apple>(signer)) return "Apple";
    return "";
}

}  // namespace

std::optional<GenuineTier> genuineTier(const SignerKind& signer, const SignatureState& signature, bool notarized,
                                       const VendorMatch& vendor) {
    if (is<vendor_match::Mismatch>(vendor)) return GenuineTier::red;
    if (is<signature_state::CouldNotCheck>(signature)) return std::nullopt;
    if (is<signature_state::Revoked>(signature)) return GenuineTier::red;
    if (is<signature_state::Unsigned>(signature) || is<signature_state::Broken>(signature)) return GenuineTier::amber;
    const bool matches = is<vendor_match::Matches>(vendor);
    if (is<signer_kind::DeveloperID>(signer)) return notarized && matches ? GenuineTier::gold : GenuineTier::green;
    // The App Store vets its apps itself and needs no notarisation.
    if (is<signer_kind::AppStore>(signer)) return matches ? GenuineTier::gold : GenuineTier::green;
    // Apple's own code is trusted, but nothing confirms a vendor for it.
    if (is<signer_kind::Apple>(signer)) return GenuineTier::green;
    return GenuineTier::amber;
}

std::optional<GenuineTier> GenuineReport::tier() const { return genuineTier(signer, signature, notarizedOffline, vendor); }

std::optional<GenuineTier> GenuineReport::tier(const std::optional<OnlineGenuineResult>& withOnline) const {
    if (!withOnline) return tier();
    if (is<signature_state::Revoked>(withOnline->signature)) return GenuineTier::red;
    return genuineTier(signer, signature, notarizedOffline || withOnline->notarized, vendor);
}

SignerKind signerKind(const std::optional<std::string>& commonName, bool hasSignature) {
    if (!hasSignature) return {signer_kind::Unsigned{}};
    if (!commonName || commonName->empty()) return {signer_kind::AdHoc{}};
    const std::string& name = *commonName;
    constexpr std::string_view kDeveloperID = "Developer ID Application: ";
    if (name.starts_with(kDeveloperID)) {
        static const std::regex teamSuffix(R"( \([A-Z0-9]{10}\)$)");
        return {signer_kind::DeveloperID{std::regex_replace(name.substr(kDeveloperID.size()), teamSuffix, "",
                                                            std::regex_constants::format_first_only)}};
    }
    if (name.find("Mac App Store") != std::string::npos || name.starts_with("Apple Mac OS Application Signing"))
        return {signer_kind::AppStore{}};
    if (name == "Software Signing" || name == "macOS Software Signing" || name.starts_with("Apple Software"))
        return {signer_kind::Apple{}};
    return {signer_kind::Other{name}};
}

SignatureState signatureState(std::int32_t status) {
    static constexpr std::int32_t kBroken[] = {-67061, -67057, -67056, -67055, -67054, -67053, -67049, -67045, -67030,
                                               -67023, -67022, -67021, -67014, -67010, -67009, -67008, -67003};
    static constexpr std::int32_t kRevoked[] = {-66992, -67820, -2147409652};
    if (status == 0) return {signature_state::Valid{}};
    if (status == -67062) return {signature_state::Unsigned{}};
    if (std::ranges::find(kBroken, status) != std::end(kBroken)) return {signature_state::Broken{}};
    if (std::ranges::find(kRevoked, status) != std::end(kRevoked)) return {signature_state::Revoked{}};
    return {signature_state::CouldNotCheck{status}};
}

bool isUUID(std::string_view text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool hyphen = i == 8 || i == 13 || i == 18 || i == 23;
        if (hyphen ? text[i] != '-' : !isHexDigit(text[i])) return false;
    }
    return true;
}

std::optional<QuarantineInfo> parseQuarantine(std::string_view text) {
    const std::string trimmed = trimWhitespace(text);
    const auto fields = splitKeepingEmpties(trimmed, ';');
    if (fields.size() < 2 || fields[0].empty() || !std::ranges::all_of(fields[0], isHexDigit)) return std::nullopt;
    QuarantineInfo info;
    info.flags = std::string(fields[0]);
    std::uint64_t seconds = 0;
    const auto time = fields[1];
    if (auto [end, ec] = std::from_chars(time.data(), time.data() + time.size(), seconds, 16);
        !time.empty() && ec == std::errc{} && end == time.data() + time.size()) {
        // Clamped: a date past the year 9999 is no date a record can hold.
        const auto bounded = std::min<std::uint64_t>(seconds, static_cast<std::uint64_t>(kDateEndUnixSeconds - 1));
        info.date = Clock::from_time_t(static_cast<std::time_t>(bounded));
    }
    if (fields.size() > 2 && !fields[2].empty()) info.agent = std::string(fields[2]);
    if (fields.size() > 3 && isUUID(fields[3])) {
        std::string id(fields[3]);
        std::ranges::transform(id, id.begin(), [](char c) { return c >= 'a' && c <= 'f' ? char(c - 'a' + 'A') : c; });
        info.eventID = id;
    }
    return info;
}

std::vector<std::string> parseWhereFroms(std::string_view data) {
    std::vector<std::string> froms;
    auto list = parsePropertyList(data);
    if (!list || !list->is_array()) return froms;
    for (const auto& item : *list)
        if (item.is_string() && !item.get_ref<const std::string&>().empty()) froms.push_back(item.get<std::string>());
    return froms;
}

GatekeeperAssessment parseGatekeeperAssessment(std::string_view text) {
    GatekeeperAssessment assessment;
    for (const auto& raw : splitKeepingEmpties(text, '\n')) {
        if (raw.empty()) continue;
        const std::string_view line = trimSpacesAndTabs(raw);
        if (line.ends_with(": accepted"))
            assessment.accepted = true;
        else if (line.ends_with(": rejected") || line.find(": rejected (") != std::string_view::npos)
            assessment.accepted = false;
        if (line.starts_with("source=")) assessment.source = std::string(line.substr(7));
    }
    return assessment;
}

std::optional<std::string> displayableDownloadURL(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    std::unique_ptr<CURLU, CurlURLFree> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, text->c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return std::nullopt;
    const CurlText scheme = urlPart(url.get(), CURLUPART_SCHEME);
    if (!scheme) return std::nullopt;
    const std::string lower = lowercased(scheme.get());
    if (lower != "https" && lower != "http" && lower != "ftp") return std::nullopt;
    const CurlText host = urlPart(url.get(), CURLUPART_HOST);
    if (!host || !*host.get()) return std::nullopt;
    return text;
}

std::string genuineSignerSummary(const GenuineReport& report, std::optional<bool> notarizedOnline, bool revokedOnline) {
    if (is<signer_kind::AdHoc>(report.signer)) return "Signed without a developer certificate";
    if (is<signer_kind::Unsigned>(report.signer)) return "Not signed";
    const std::string signedBy = "Signed by " + signerName(report.signer) + " \u00B7 ";
    if (revokedOnline || is<signature_state::Revoked>(report.signature)) return signedBy + "revoked by Apple";
    if (is<signature_state::CouldNotCheck>(report.signature)) return signedBy + "signature couldn't be checked";
    if (is<signature_state::Broken>(report.signature)) return signedBy + "signature broken";
    if (is<signer_kind::DeveloperID>(report.signer))
        return signedBy + (report.notarizedOffline || notarizedOnline.value_or(false)
                               ? "notarised"
                               : "notarisation not confirmed on this Mac");
    if (is<signer_kind::AppStore>(report.signer)) return "From the Mac App Store \u00B7 signature intact";
    if (is<signer_kind::Apple>(report.signer)) return "Signed by Apple \u00B7 part of macOS or Apple's own software";
    return signedBy + "not a Developer ID certificate";
}

// JSON forms.

nlohmann::ordered_json toJSON(const SignerKind& signer) {
    using nlohmann::ordered_json;
    return std::visit(
        [](const auto& s) -> ordered_json {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, signer_kind::DeveloperID>) return {{"developerID", {{"name", s.name}}}};
            if constexpr (std::is_same_v<T, signer_kind::Other>) return {{"other", {{"name", s.name}}}};
            if constexpr (std::is_same_v<T, signer_kind::AppStore>) return {{"appStore", kEmpty}};
            if constexpr (std::is_same_v<T, signer_kind::Apple>) return {{"apple", kEmpty}};
            if constexpr (std::is_same_v<T, signer_kind::AdHoc>) return {{"adHoc", kEmpty}};
            if constexpr (std::is_same_v<T, signer_kind::Unsigned>) return {{"unsigned", kEmpty}};
        },
        signer.value);
}

std::optional<SignerKind> signerKindFromJSON(const nlohmann::json& value) {
    std::string name;
    const nlohmann::json* body = caseBody(value, name);
    if (!body) return std::nullopt;
    if (name == "developerID" || name == "other") {
        auto signerName = bodyString(*body, "name");
        if (!signerName) return std::nullopt;
        if (name == "developerID") return SignerKind{signer_kind::DeveloperID{*signerName}};
        return SignerKind{signer_kind::Other{*signerName}};
    }
    if (name == "appStore") return SignerKind{signer_kind::AppStore{}};
    if (name == "apple") return SignerKind{signer_kind::Apple{}};
    if (name == "adHoc") return SignerKind{signer_kind::AdHoc{}};
    if (name == "unsigned") return SignerKind{signer_kind::Unsigned{}};
    return std::nullopt;
}

nlohmann::ordered_json toJSON(const SignatureState& state) {
    using nlohmann::ordered_json;
    return std::visit(
        [](const auto& s) -> ordered_json {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, signature_state::Valid>) return {{"valid", kEmpty}};
            if constexpr (std::is_same_v<T, signature_state::Unsigned>) return {{"unsigned", kEmpty}};
            if constexpr (std::is_same_v<T, signature_state::Revoked>) return {{"revoked", kEmpty}};
            if constexpr (std::is_same_v<T, signature_state::Broken>) return {{"broken", kEmpty}};
            if constexpr (std::is_same_v<T, signature_state::CouldNotCheck>)
                return {{"couldNotCheck", {{"_0", s.status}}}};
        },
        state.value);
}

std::optional<SignatureState> signatureStateFromJSON(const nlohmann::json& value) {
    std::string name;
    const nlohmann::json* body = caseBody(value, name);
    if (!body) return std::nullopt;
    if (name == "valid") return SignatureState{signature_state::Valid{}};
    if (name == "unsigned") return SignatureState{signature_state::Unsigned{}};
    if (name == "revoked") return SignatureState{signature_state::Revoked{}};
    if (name == "broken") return SignatureState{signature_state::Broken{}};
    if (name != "couldNotCheck") return std::nullopt;
    auto status = body->find("_0");
    auto whole = status == body->end() ? std::nullopt : jsonWholeNumber(*status);
    if (!whole || *whole < INT32_MIN || *whole > INT32_MAX) return std::nullopt;
    return SignatureState{signature_state::CouldNotCheck{static_cast<std::int32_t>(*whole)}};
}

nlohmann::ordered_json toJSON(const DownloadRecord& record) {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    if (record.agent) out["agent"] = *record.agent;
    if (record.date) out["date"] = iso8601(*record.date);
    if (record.url) out["url"] = *record.url;
    if (record.pageURL) out["pageURL"] = *record.pageURL;
    return out;
}

std::optional<DownloadRecord> downloadRecordFromJSON(const nlohmann::json& value) {
    JSONFields fields(value, "a download record");
    DownloadRecord record{fields.optionalString("agent"), fields.optionalDate("date", JSONDateEncoding::iso8601),
                          fields.optionalString("url"), fields.optionalString("pageURL")};
    if (!fields) return std::nullopt;
    return record;
}

nlohmann::ordered_json toJSON(const GenuineReport& report) {
    nlohmann::ordered_json out;
    out["appPath"] = report.appPath;
    out["signer"] = toJSON(report.signer);
    if (report.teamID) out["teamID"] = *report.teamID;
    out["signature"] = toJSON(report.signature);
    out["stapledTicket"] = report.stapledTicket;
    out["notarizedOffline"] = report.notarizedOffline;
    out["vendor"] = toJSON(report.vendor);
    if (report.download) out["download"] = toJSON(*report.download);
    return out;
}

std::optional<GenuineReport> genuineReportFromJSON(const nlohmann::json& value) {
    JSONFields fields(value, "a genuine report");
    GenuineReport report;
    report.appPath = fields.string("appPath");
    const nlohmann::json* signer = fields.value("signer");
    report.teamID = fields.optionalString("teamID");
    const nlohmann::json* signature = fields.value("signature");
    report.stapledTicket = fields.boolean("stapledTicket");
    report.notarizedOffline = fields.boolean("notarizedOffline");
    const nlohmann::json* vendor = fields.value("vendor");
    if (!fields || !signer || !signature || !vendor) return std::nullopt;
    auto download = value.find("download");
    auto s = signerKindFromJSON(*signer);
    auto state = signatureStateFromJSON(*signature);
    auto match = vendorMatchFromJSON(*vendor);
    if (!s || !state || !match) return std::nullopt;
    report.signer = *s;
    report.signature = *state;
    report.vendor = *match;
    if (download != value.end() && !download->is_null()) {
        report.download = downloadRecordFromJSON(*download);
        if (!report.download) return std::nullopt;
    }
    return report;
}

nlohmann::ordered_json toJSON(const OnlineGenuineResult& result) {
    nlohmann::ordered_json out;
    out["signature"] = toJSON(result.signature);
    out["notarized"] = result.notarized;
    if (result.gatekeeperAccepted) out["gatekeeperAccepted"] = *result.gatekeeperAccepted;
    if (result.gatekeeperSource) out["gatekeeperSource"] = *result.gatekeeperSource;
    return out;
}

std::optional<OnlineGenuineResult> onlineGenuineResultFromJSON(const nlohmann::json& value) {
    JSONFields fields(value, "an online result");
    const nlohmann::json* signature = fields.value("signature");
    OnlineGenuineResult result;
    result.notarized = fields.boolean("notarized");
    result.gatekeeperAccepted = fields.optionalBoolean("gatekeeperAccepted");
    result.gatekeeperSource = fields.optionalString("gatekeeperSource");
    if (!fields || !signature) return std::nullopt;
    auto state = signatureStateFromJSON(*signature);
    if (!state) return std::nullopt;
    result.signature = *state;
    return result;
}

nlohmann::ordered_json toJSON(const GenuineCacheKey& key) {
    return {{"inode", key.inode}, {"bundleMTime", key.bundleMTime}, {"infoMTime", key.infoMTime},
            {"sealMTime", key.sealMTime}};
}

std::optional<GenuineCacheKey> genuineCacheKeyFromJSON(const nlohmann::json& value) {
    JSONFields fields(value, "a cache key");
    const nlohmann::json* inode = fields.value("inode");
    GenuineCacheKey key;
    key.bundleMTime = fields.number("bundleMTime");
    key.infoMTime = fields.number("infoMTime");
    key.sealMTime = fields.number("sealMTime");
    if (!fields || !inode || !inode->is_number_unsigned()) return std::nullopt;
    key.inode = inode->get<std::uint64_t>();
    return key;
}

}  // namespace orvane
