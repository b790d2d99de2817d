// An Ed25519 key pair made on the spot, so that no test depends on the project's own private key.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/common/base64.hpp"

namespace orvane::testing {

struct TestSigner {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, EVP_PKEY_free};

    TestSigner() {
        EVP_PKEY* made = nullptr;
        auto* context = EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr);
        EVP_PKEY_keygen_init(context);
        EVP_PKEY_keygen(context, &made);
        EVP_PKEY_CTX_free(context);
        key.reset(made);
    }
    std::string publicKeyBase64() const {
        std::string raw(32, '\0');
        std::size_t length = raw.size();
        EVP_PKEY_get_raw_public_key(key.get(), reinterpret_cast<unsigned char*>(raw.data()), &length);
        return base64Encoded(raw);
    }
    std::string sign(std::string_view data) const {
        std::string signature(64, '\0');
        std::size_t length = signature.size();
        auto* context = EVP_MD_CTX_new();
        EVP_DigestSignInit(context, nullptr, nullptr, nullptr, key.get());
        EVP_DigestSign(context, reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(data.data()), data.size());
        EVP_MD_CTX_free(context);
        return signature;
    }
};

}  // namespace orvane::testing
