#include "core/common/base64.hpp"

#include <openssl/evp.h>

#include <climits>

namespace orvane {

namespace {

bool inAlphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

}  // namespace

std::string base64Encoded(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > INT_MAX / 4 * 3) return {};
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(written < 0 ? 0 : static_cast<std::size_t>(written));
    return out;
}

std::optional<std::string> base64Decoded(std::string_view text) {
    if (text.size() % 4 != 0 || text.size() > INT_MAX) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    for (std::size_t i = 0; i + padding < text.size(); ++i)
        if (!inAlphabet(text[i])) return std::nullopt;
    std::string out(text.size() / 4 * 3, '\0');
    const int written = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (written < 0) return std::nullopt;
    // EVP_DecodeBlock counts the padding as bytes; each "=" stands for one byte too many.
    out.resize(static_cast<std::size_t>(written) - padding);
    return out;
}

}  // namespace orvane
