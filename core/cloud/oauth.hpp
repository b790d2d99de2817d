// The OAuth pieces that need no network: token answers, error answers, the browser's call back to
// the loopback listener, and what the ledger keeps of an account.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/cloud/provider_json.hpp"

namespace orvane {

struct OAuthTokenUpdate {
    std::string access;                  // never empty
    std::optional<std::string> refresh;  // absent: not rotated, the stored one stays

    bool operator==(const OAuthTokenUpdate&) const = default;
};

// From a token endpoint's answer: "access_token" must be a text with something besides white
// space; both tokens are kept trimmed.
std::optional<OAuthTokenUpdate> oauthTokenUpdate(std::string_view response);
std::optional<OAuthTokenUpdate> oauthTokenUpdate(const JSONDict& json);

// "error" and "error_description" as one safe sentence of at most `limit` characters.
std::optional<std::string> oauthErrorSummary(std::string_view from, int limit);
std::optional<std::string> oauthErrorSummary(const JSONDict& json, int limit);

// The target of a browser's "GET" under `path` that carries a non-empty "state" (equal to
// `expectedState` when one is given): the whole target, query included, for the caller to read
// its code from. Nothing for anything else that reaches the listener.
std::optional<std::string> oauthLoopbackCallbackTarget(std::string_view request, std::string_view path,
                                                        std::optional<std::string_view> expectedState);

// What the ledger stores for a connected account: the domain of an e-mail address at most, never
// its local part.
std::string ledgerAccountMarker(std::string_view account);

}  // namespace orvane
