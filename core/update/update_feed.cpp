#include "core/update/update_feed.hpp"

#include <openssl/evp.h>

#include <memory>

#include "core/cloud/api_request.hpp"
#include "core/common/base64.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

constexpr std::size_t kEd25519KeyBytes = 32;

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct DigestFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using PublicKey = std::unique_ptr<EVP_PKEY, KeyFree>;

PublicKey publicKeyOf(std::string_view base64Key) {
    const auto raw = base64Decoded(base64Key);
    if (!raw || raw->size() != kEd25519KeyBytes) return nullptr;
    return PublicKey(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                                 reinterpret_cast<const unsigned char*>(raw->data()), raw->size()));
}

bool signatureHolds(EVP_PKEY* key, std::string_view data, std::string_view signature) {
    std::unique_ptr<EVP_MD_CTX, DigestFree> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key) != 1) return false;
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                            reinterpret_cast<const unsigned char*>(data.data()), data.size()) == 1;
}

std::optional<std::string> stringField(const nlohmann::json& document, const char* key, bool required,
                                       std::string& problem) {
    const auto found = document.find(key);
    if (found == document.end() || found->is_null()) {
        if (required && problem.empty()) problem = std::string("The update information has no \"") + key + "\".";
        return std::nullopt;
    }
    if (!found->is_string()) {
        if (problem.empty()) problem = std::string("The update information's \"") + key + "\" is not text.";
        return std::nullopt;
    }
    return found->get<std::string>();
}

}  // namespace

std::variant<Latest, std::string> decodeLatest(const nlohmann::json& document) {
    if (!document.is_object()) return std::string("The update information is not a JSON object.");
    std::string problem;
    Latest latest;
    auto version = stringField(document, "version", true, problem);
    latest.notes = stringField(document, "notes", false, problem);
    latest.notes_url = stringField(document, "notes_url", false, problem);
    auto download = stringField(document, "download_url", true, problem);
    latest.archive_url = stringField(document, "archive_url", false, problem);
    if (!problem.empty()) return problem;
    latest.version = std::move(*version);
    latest.download_url = std::move(*download);
    return latest;
}

FeedVerdict verifyFeed(std::string_view data, const std::optional<std::string>& signature,
                       std::string_view publicKeyBase64) {
    if (publicKeyBase64.empty()) return feed::UnsignedButAllowed{};
    const auto key = publicKeyOf(publicKeyBase64);
    if (!key) return feed::Rejected{"this build's update key is unreadable"};
    if (!signature || signature->empty()) return feed::Rejected{"the update information arrived without a signature"};
    if (!signatureHolds(key.get(), data, *signature))
        return feed::Rejected{"the update information didn't match its signature"};
    return feed::Verified{};
}

bool verifyEdSignature(std::string_view data, std::string_view signatureBase64, std::string_view publicKeyBase64) {
    const auto key = publicKeyOf(publicKeyBase64);
    const auto signature = base64Decoded(signatureBase64);
    return key && signature && signatureHolds(key.get(), data, *signature);
}

std::optional<std::string> safeWebURL(const std::optional<std::string>& text) {
    if (!text || !isHTTPSWithHost(*text)) return std::nullopt;
    return *text;
}

std::string resolvedUpdateFeedURL(const std::optional<std::string>& configured, std::string_view fallback) {
    if (!configured) return std::string(fallback);
    const std::string trimmed = trimWhitespace(*configured);
    if (trimmed.empty() || !safeWebURL(trimmed)) return std::string(fallback);
    return trimmed;
}

}  // namespace orvane
