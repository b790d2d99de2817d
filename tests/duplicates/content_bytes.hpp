// Test contents for the duplicate finder: bytes that show a block read from the wrong place, and
// a digest computed apart from the code under test.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

inline constexpr std::size_t MiB = 1024 * 1024;

// Bytes that never repeat at a block's distance, so a block read from the wrong offset shows.
inline std::string patterned(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 2463534242u;
    for (char& byte : bytes) {
        state ^= state << 13, state ^= state >> 17, state ^= state << 5;
        byte = static_cast<char>(state & 0xff);
    }
    return bytes;
}

inline std::string sha256Hex(const std::vector<std::string_view>& parts) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
    for (std::string_view part : parts) EVP_DigestUpdate(context, part.data(), part.size());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context, digest, &length);
    EVP_MD_CTX_free(context);
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) out += {hex[digest[i] >> 4], hex[digest[i] & 15]};
    return out;
}

}  // namespace orvane::testing
