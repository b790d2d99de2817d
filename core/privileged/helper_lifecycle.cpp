#include "core/privileged/helper_lifecycle.hpp"

#include <algorithm>

#include "core/common/text.hpp"
#include "core/privileged/protocol.hpp"

namespace orvane {

namespace {

bool isIdentifierCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// `identifier` then white space, an optional quote, and the identifier: the form of a code
// requirement's clause. Scanned by hand so that megabytes of executable cost one pass.
std::vector<std::string> identifiersIn(std::string_view text) {
    std::vector<std::string> found;
    constexpr std::string_view keyword = "identifier";
    std::size_t at = 0;
    while ((at = text.find(keyword, at)) != std::string_view::npos) {
        std::size_t i = at + keyword.size();
        const std::size_t spaces = i;
        while (i < text.size() && isSpace(text[i])) ++i;
        if (i > spaces && i < text.size() && text[i] == '"') ++i;
        const std::size_t first = i;
        while (i < text.size() && isIdentifierCharacter(text[i])) ++i;
        if (i == spaces || first == i) {
            ++at;
            continue;
        }
        std::string identifier(text.substr(first, i - first));
        if (std::find(found.begin(), found.end(), identifier) == found.end()) found.push_back(std::move(identifier));
        at = i < text.size() && text[i] == '"' ? i + 1 : i;
    }
    return found;
}

}  // namespace

HelperUpgradeDecision helperUpgradeDecision(bool registered, const std::optional<std::string>& reportedVersion,
                                            std::int64_t required) {
    if (!registered) return HelperUpgradeDecision::notInstalled;
    const std::string version = trimWhitespace(reportedVersion.value_or(""));
    if (version.empty()) return HelperUpgradeDecision::needsUpgrade;
    return helperMajorVersion(version) < required ? HelperUpgradeDecision::needsUpgrade : HelperUpgradeDecision::current;
}

bool mayAutoUpgradeHelper(int attemptsAlreadyMade) { return attemptsAlreadyMade < 1; }

std::string helperUnavailableNote(HelperUpgradeDecision decision, bool awaitingApproval) {
    switch (decision) {
        case HelperUpgradeDecision::notInstalled:
            return awaitingApproval
                       ? "Velloran Orvane's privileged helper is waiting for your approval in System Settings › "
                         "General › Login Items."
                       : "Velloran Orvane's privileged helper isn't set up on this Mac yet. Without it, privileged "
                         "steps ask for your administrator password instead, and scanning as administrator isn't "
                         "available at all.";
        case HelperUpgradeDecision::needsUpgrade:
            return awaitingApproval
                       ? "Velloran Orvane's privileged helper has been updated and is waiting for your approval in "
                         "System Settings › General › Login Items."
                       : "Velloran Orvane's privileged helper is an older version than this app can use, so it has "
                         "to be re-registered before it can do privileged work.";
        case HelperUpgradeDecision::current:
            return {};
    }
    return {};
}

std::vector<std::string> smAuthorizedClients(const std::string& binaryPath, std::uint64_t maxBytes, const Facts& facts) {
    const auto read = facts.readHead(binaryPath, maxBytes);
    if (!read.bytes || read.bytes->empty()) return {};
    const std::string_view text = *read.bytes;
    const auto key = text.find("<key>SMAuthorizedClients</key>");
    if (key == std::string_view::npos) return {};
    const auto open = text.find("<array>", key);
    if (open == std::string_view::npos) return {};
    const auto close = text.find("</array>", open);
    if (close == std::string_view::npos) return {};
    return identifiersIn(text.substr(open, close - open));
}

bool isOrphanedHelper(const std::vector<std::string>& clients, const std::set<std::string>& installedIDs,
                      bool inventoryComplete) {
    if (!inventoryComplete || installedIDs.empty() || clients.empty()) return false;
    std::set<std::string> installed;
    for (const auto& id : installedIDs) installed.insert(lowercased(id));
    return std::none_of(clients.begin(), clients.end(),
                        [&](const std::string& client) { return installed.count(lowercased(client)) > 0; });
}

}  // namespace orvane
