#include "core/duplicates/digest.hpp"

namespace orvane::digest {

Digest newSHA256() {
    Digest digest(EVP_MD_CTX_new());
    if (digest && EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1) digest.reset();
    return digest;
}

std::string finishHex(EVP_MD_CTX* digest) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(digest, bytes, &length);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex(2 * length, '0');
    for (unsigned int i = 0; i < length; ++i) {
        hex[2 * i] = kHex[bytes[i] >> 4];
        hex[2 * i + 1] = kHex[bytes[i] & 15];
    }
    return hex;
}

}  // namespace orvane::digest
