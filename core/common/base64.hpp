// Base64 text of bytes and back, through OpenSSL, strict on the way in: a key or a signature
// that arrives with stray characters is refused rather than read as something else.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

std::string base64Encoded(std::string_view bytes);

// The bytes of standard Base64 text with its padding; none for anything else (a length that is
// not a multiple of four, a character outside the alphabet, "=" anywhere but at the end).
std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace orvane
