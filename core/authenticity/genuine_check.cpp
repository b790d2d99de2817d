#include "core/authenticity/genuine_check.hpp"

#include <sqlite3.h>

#include <memory>

#include "core/common/text.hpp"
#include "core/startup/launchd_inventory.hpp"

namespace orvane {
namespace {

constexpr double kDisplayTimeLimit = 30;
constexpr double kVerifyTimeLimit = 60;
constexpr double kAssessTimeLimit = 60;
constexpr std::int32_t kStatusNotSigned = -67062;
constexpr std::int32_t kStatusRevoked = -2147409652;  // CSSMERR_TP_CERT_REVOKED
constexpr std::int32_t kStatusInvalid = -67061;       // errSecCSSignatureFailed
constexpr const char* kNotarizedSource = "Notarized Developer ID";

// A tool that did not run at all (absent here, or not in the recording) says nothing about the
// app; a tool that ran and failed does.
bool didNotRun(const ToolResult& result) { return result.status == -1 && result.lines.empty(); }


// What `codesign --display --verbose=4` tells of a bundle.
struct SigningDisplay {
    bool ran = false;
    bool hasSignature = false;
    std::optional<std::string> commonName;  // the leaf certificate's
    std::optional<std::string> teamID;
    bool stapledTicket = false;
};

SigningDisplay signingDisplay(const std::string& appPath, const Facts& facts) {
    const ToolResult result =
        facts.run(kCodesignTool, {"--display", "--verbose=4", appPath}, kDisplayTimeLimit, false, ToolErrors::merged);
    SigningDisplay display;
    if (didNotRun(result)) return display;
    display.ran = true;
    for (const auto& line : result.lines) {
        if (line.starts_with("Identifier=") || line.starts_with("CDHash=")) display.hasSignature = true;
        // The chain is printed leaf first.
        if (line.starts_with("Authority=") && !display.commonName) display.commonName = line.substr(10);
        if (line.starts_with("TeamIdentifier=") && isTeamID(std::string_view(line).substr(15)))
            display.teamID = line.substr(15);
        if (line == "Notarization Ticket=stapled") display.stapledTicket = true;
    }
    return display;
}

ToolResult gatekeeperAssessment(const std::string& appPath, const Facts& facts) {
    return facts.run(kGatekeeperTool, {"--assess", "--type", "execute", "-vv", appPath}, kAssessTimeLimit, false,
                     ToolErrors::merged);
}

double modificationTime(const platform::FileFacts& entry) {
    return static_cast<double>(entry.modifiedSeconds) + static_cast<double>(entry.modifiedNanoseconds) / 1e9;
}

struct DatabaseClose {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StatementFinalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

std::optional<std::string> textColumn(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    if (!text || !*text) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(text),
                       static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

}  // namespace

namespace GenuineCheck {

std::pair<SignerKind, std::optional<std::string>> signerAndTeam(const std::string& appPath, const Facts& facts) {
    const SigningDisplay display = signingDisplay(appPath, facts);
    if (!display.ran) return {SignerKind{signer_kind::Unsigned{}}, std::nullopt};
    return {signerKind(display.commonName, display.hasSignature), display.teamID};
}

std::optional<std::set<std::string>> signingTeams(const std::vector<std::string>& appPaths, const Facts& facts) {
    std::set<std::string> teams;
    for (const auto& path : appPaths) {
        const SigningDisplay display = signingDisplay(path, facts);
        if (!display.ran) return std::nullopt;
        if (display.teamID) teams.insert(*display.teamID);
    }
    return teams;
}

SignatureState validate(const std::string& appPath, std::uint32_t, const Facts& facts) {
    const ToolResult result = facts.run(kCodesignTool, {"--verify", "--deep", "--strict", appPath}, kVerifyTimeLimit,
                                        false, ToolErrors::merged);
    if (didNotRun(result)) return {signature_state::CouldNotCheck{-1}};
    if (result.status == 0) return signatureState(0);
    const std::string text = joinedLines(result.lines);
    if (text.find("not signed at all") != std::string::npos) return signatureState(kStatusNotSigned);
    if (text.find("CSSMERR_TP_CERT_REVOKED") != std::string::npos) return signatureState(kStatusRevoked);
    return signatureState(kStatusInvalid);
}

bool notarizedCheck(const std::string& appPath, bool network, const Facts& facts) {
    if (!network) return signingDisplay(appPath, facts).stapledTicket;
    const ToolResult result = gatekeeperAssessment(appPath, facts);
    return parseGatekeeperAssessment(joinedLines(result.lines)).source == kNotarizedSource;
}

OnlineGenuineResult online(const std::string& appPath, const Facts& facts) {
    const std::string text = joinedLines(gatekeeperAssessment(appPath, facts).lines);
    const GatekeeperAssessment assessment = parseGatekeeperAssessment(text);
    OnlineGenuineResult result;
    result.signature = text.find("CSSMERR_TP_CERT_REVOKED") != std::string::npos
                           ? SignatureState{signature_state::Revoked{}}
                           : validate(appPath, kEnforceRevocationChecks, facts);
    result.notarized = assessment.source == kNotarizedSource;
    result.gatekeeperAccepted = assessment.accepted;
    result.gatekeeperSource = assessment.source;
    return result;
}

GenuineReport offline(const std::string& appPath, const std::string& appName, const std::string& bundleID,
                      const std::string& home, const Facts& facts) {
    GenuineReport report;
    report.appPath = appPath;
    report.stapledTicket = facts.exists(appPath + "/Contents/CodeResources");
    report.download = downloadRecord(appPath, home, facts);
    const SigningDisplay display = signingDisplay(appPath, facts);
    if (!display.ran) {
        // Nothing was learnt of the signature, so nothing is held against the app either: a
        // claimed name must not turn red for want of a tool.
        report.signer = {signer_kind::Unsigned{}};
        report.signature = {signature_state::CouldNotCheck{-1}};
        return report;
    }
    report.signer = signerKind(display.commonName, display.hasSignature);
    report.teamID = display.teamID;
    report.signature = validate(appPath, kNoNetworkAccess, facts);
    report.notarizedOffline = display.stapledTicket;
    const bool isUnsigned = std::holds_alternative<signer_kind::Unsigned>(report.signer.value);
    report.vendor = vendorMatch(appName, bundleID, isUnsigned ? std::nullopt : report.teamID);
    return report;
}

std::optional<std::string> xattrData(const std::string& path, const std::string& name, const Facts& facts) {
    auto value = facts.extendedAttribute(path, name, kMaxAttributeBytes);
    if (!value || value->empty() || value->size() > kMaxAttributeBytes) return std::nullopt;
    return value;
}

std::optional<QuarantineEvent> quarantineEvent(const std::string& db, const std::string& id) {
    if (!isUUID(id)) return std::nullopt;  // nothing unvalidated reaches the query
    sqlite3* opened = nullptr;
    const int openStatus = sqlite3_open_v2(db.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    const std::unique_ptr<sqlite3, DatabaseClose> database(opened);
    if (openStatus != SQLITE_OK) return std::nullopt;
    sqlite3_stmt* prepared = nullptr;
    constexpr const char* kQuery =
        "SELECT LSQuarantineDataURLString, LSQuarantineOriginURLString FROM LSQuarantineEvent "
        "WHERE LSQuarantineEventIdentifier = ?1 COLLATE NOCASE LIMIT 1";
    if (sqlite3_prepare_v2(database.get(), kQuery, -1, &prepared, nullptr) != SQLITE_OK) return std::nullopt;
    const std::unique_ptr<sqlite3_stmt, StatementFinalize> statement(prepared);
    if (sqlite3_bind_text(statement.get(), 1, id.c_str(), static_cast<int>(id.size()), SQLITE_TRANSIENT) != SQLITE_OK ||
        sqlite3_step(statement.get()) != SQLITE_ROW)
        return std::nullopt;
    return QuarantineEvent{textColumn(statement.get(), 0), textColumn(statement.get(), 1)};
}

std::optional<DownloadRecord> downloadRecord(const std::string& appPath, const std::string& home, const Facts& facts) {
    auto quarantineText = xattrData(appPath, "com.apple.quarantine", facts);
    const auto quarantine =
        quarantineText && isValidUTF8(*quarantineText) ? parseQuarantine(*quarantineText) : std::nullopt;
    const auto whereFroms = xattrData(appPath, "com.apple.metadata:kMDItemWhereFroms", facts);
    const std::vector<std::string> froms = whereFroms ? parseWhereFroms(*whereFroms) : std::vector<std::string>{};
    auto fromWhereFroms = [&](DownloadRecord& record) {
        record.url = displayableDownloadURL(froms[0]);
        if (froms.size() > 1) record.pageURL = displayableDownloadURL(froms[1]);
    };
    if (!quarantine) {
        if (froms.empty()) return std::nullopt;
        DownloadRecord record;
        fromWhereFroms(record);
        return record;
    }
    DownloadRecord record{quarantine->agent, quarantine->date, std::nullopt, std::nullopt};
    if (!froms.empty()) fromWhereFroms(record);
    if (record.url || !quarantine->eventID) return record;
    // The where-froms said nothing showable (a file: URL, or none): the event may.
    const auto db = facts.localPath(home + "/Library/Preferences/com.apple.LaunchServices.QuarantineEventsV2");
    if (!db) return record;
    if (auto event = quarantineEvent(*db, *quarantine->eventID)) {
        record.url = displayableDownloadURL(event->url);
        record.pageURL = displayableDownloadURL(event->origin);
    }
    return record;
}

}  // namespace GenuineCheck

std::optional<GenuineCacheKey> GenuineCacheKey::of(const std::string& path, const Facts& facts) {
    const auto bundle = facts.lstat(path);
    if (!bundle) return std::nullopt;
    auto timeOf = [&](const std::string& file) {
        const auto entry = facts.lstat(file);
        return entry ? modificationTime(*entry) : 0.0;
    };
    return GenuineCacheKey{bundle->inode, modificationTime(*bundle), timeOf(path + "/Contents/Info.plist"),
                           timeOf(path + "/Contents/_CodeSignature/CodeResources")};
}

}  // namespace orvane
