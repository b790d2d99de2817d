// The signed feed that offers a new version: its reading, its signature, and the addresses it
// may lead to. Nothing here downloads; a refusal here means nothing happens at all.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <nlohmann/json.hpp>

namespace orvane {

// The feed document.
struct Latest {
    std::string version;
    std::optional<std::string> notes;
    std::optional<std::string> notes_url;
    std::string download_url;
    std::optional<std::string> archive_url;
    bool operator==(const Latest&) const = default;
};

// The feed, or a sentence saying why it is not one: a required key missing, or any key of the
// wrong type.
std::variant<Latest, std::string> decodeLatest(const nlohmann::json& document);

namespace feed {
struct Rejected {
    std::string reason;  // shown to the user as it stands
    bool operator==(const Rejected&) const = default;
};
struct Verified {
    bool operator==(const Verified&) const = default;
};
// A build made without a key takes feeds as they come.
struct UnsignedButAllowed {
    bool operator==(const UnsignedButAllowed&) const = default;
};
}  // namespace feed
using FeedVerdict = std::variant<feed::Rejected, feed::Verified, feed::UnsignedButAllowed>;

// The largest download that is accepted.
inline constexpr std::int64_t maxUpdateArchiveBytes = 4'294'967'296;

// The Ed25519 public key the feed is signed with; its private half is kept off the repository.
inline constexpr std::string_view updateFeedPublicKeyBase64 = "eJTNBfmTcr1rUkOSRJeV+1kyj6wveILxlkq43gzBo10=";

// Where the feed is published unless a setting names another one.
inline constexpr std::string_view defaultUpdateFeedURL = "https://updates.velloran.com/orvane/latest.json";

// The signature of a feed is published beside it, as Base64 text, at the feed's address plus this.
inline constexpr std::string_view feedSignatureSuffix = ".sig";

// Ed25519 over the feed's exact bytes with the signature that arrived beside them.
FeedVerdict verifyFeed(std::string_view data, const std::optional<std::string>& signature,
                       std::string_view publicKeyBase64);

// The same test with the signature as Base64 text, for a plain answer.
bool verifyEdSignature(std::string_view data, std::string_view signatureBase64, std::string_view publicKeyBase64);

// The address itself when it is HTTPS with a host; none for anything else.
std::optional<std::string> safeWebURL(const std::optional<std::string>& text);

// A configured feed address, trimmed, when it is a safe one; `fallback` otherwise.
std::string resolvedUpdateFeedURL(const std::optional<std::string>& configured, std::string_view fallback);

}  // namespace orvane
