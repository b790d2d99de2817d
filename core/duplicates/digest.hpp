// SHA-256 through OpenSSL's EVP interface, as the sample, the proof and the pass all take it.
#pragma once

#include <memory>
#include <string>

#include <openssl/evp.h>

namespace orvane::digest {

struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Digest = std::unique_ptr<EVP_MD_CTX, Free>;

// A SHA-256 digest ready for bytes; none when OpenSSL cannot make one.
Digest newSHA256();

// The digest finished, as 64 lowercase hex digits.
std::string finishHex(EVP_MD_CTX* digest);

}  // namespace orvane::digest
