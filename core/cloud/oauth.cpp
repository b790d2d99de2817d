#include "core/cloud/oauth.hpp"

#include <vector>

#include "core/cloud/provider_text.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

std::optional<std::string> trimmedToken(const JSONDict& json, std::string_view key) {
    auto text = jsonString(json, key);
    if (!text) return std::nullopt;
    std::string trimmed = trimWhitespace(*text);
    if (trimmed.empty()) return std::nullopt;
    return trimmed;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Percent-decoding as URL components do it ("+" stays a plus); a broken escape fails.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

// Whether every byte may stand in a request target as a browser sends it.
bool targetCharactersValid(std::string_view target) {
    for (const char c : target) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F) return false;
        if (std::string_view("\"<>\\^`{|}").find(c) != std::string_view::npos) return false;
    }
    return true;
}

struct QueryItem {
    std::string name;
    std::optional<std::string> value;  // absent for an item without "="
};

std::optional<std::vector<QueryItem>> queryItems(std::string_view target) {
    if (!targetCharactersValid(target)) return std::nullopt;
    if (const auto hash = target.find('#'); hash != std::string_view::npos) target = target.substr(0, hash);
    const auto question = target.find('?');
    if (question == std::string_view::npos) return std::vector<QueryItem>{};
    std::vector<QueryItem> items;
    for (const auto& piece : splitKeepingEmpties(target.substr(question + 1), '&')) {
        const auto equals = piece.find('=');
        auto name = percentDecoded(std::string_view(piece).substr(0, equals));
        if (!name) return std::nullopt;
        QueryItem item{std::move(*name), std::nullopt};
        if (equals != std::string::npos) {
            item.value = percentDecoded(std::string_view(piece).substr(equals + 1));
            if (!item.value) return std::nullopt;
        }
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace

std::optional<OAuthTokenUpdate> oauthTokenUpdate(std::string_view response) {
    const auto json = parseJSONDict(response);
    if (!json) return std::nullopt;
    return oauthTokenUpdate(*json);
}

std::optional<OAuthTokenUpdate> oauthTokenUpdate(const JSONDict& json) {
    auto access = trimmedToken(json, "access_token");
    if (!access) return std::nullopt;
    return OAuthTokenUpdate{std::move(*access), trimmedToken(json, "refresh_token")};
}

std::optional<std::string> oauthErrorSummary(std::string_view from, int limit) {
    const auto json = parseJSONDict(from);
    if (!json) return std::nullopt;
    return oauthErrorSummary(*json, limit);
}

std::optional<std::string> oauthErrorSummary(const JSONDict& json, int limit) {
    const auto field = [&](const char* key) -> std::optional<std::string> {
        const auto found = json.find(key);
        if (found == json.end()) return std::nullopt;
        return sanitizedProviderText(found->second, limit);
    };
    const auto error = field("error");
    const auto description = field("error_description");
    if (!error) return description;
    if (!description) return error;
    return sanitizedClamp(*error + ": " + *description, limit);
}

std::optional<std::string> oauthLoopbackCallbackTarget(std::string_view request, std::string_view path,
                                                        std::optional<std::string_view> expectedState) {
    const std::string_view line = request.substr(0, request.find_first_of("\r\n"));
    if (line.empty()) return std::nullopt;
    const auto words = splitDroppingEmpties(line, ' ');
    if (words.size() < 2 || words[0] != "GET") return std::nullopt;
    const std::string& target = words[1];
    if (!target.starts_with(path.empty() ? std::string_view("/") : path)) return std::nullopt;
    const auto items = queryItems(target);
    if (!items || items->empty()) return std::nullopt;
    for (const auto& item : *items) {
        if (item.name != "state") continue;
        if (!item.value || item.value->empty()) return std::nullopt;
        if (expectedState && *item.value != *expectedState) return std::nullopt;
        return target;
    }
    return std::nullopt;
}

std::string ledgerAccountMarker(std::string_view account) {
    const std::string trimmed = trimWhitespace(account);
    if (const auto at = trimmed.rfind('@'); at != std::string::npos) {
        const std::string domain = lowercased(trimWhitespace(std::string_view(trimmed).substr(at + 1)));
        if (!domain.empty() && domain.find('.') != std::string::npos) return "connected (account at " + domain + ")";
    }
    return "connected";
}

}  // namespace orvane
