#include "core/ledger/internal/utf8_repair.hpp"

namespace orvane::ledger::internal {

std::string repairUTF8(std::string_view bytes) {
    static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    std::string out;
    out.reserve(bytes.size());
    std::size_t i = 0;
    const std::size_t n = bytes.size();
    auto at = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
    while (i < n) {
        const unsigned char lead = at(i);
        if (lead < 0x80) {
            out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        }
        std::size_t length = 0;
        unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
        if (lead >= 0xC2 && lead <= 0xDF) length = 2;
        else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;         // no overlong forms
            else if (lead == 0xED) high = 0x9F;   // no surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            else if (lead == 0xF4) high = 0x8F;   // nothing above U+10FFFF
        }
        if (length == 0) {
            out += kReplacement;
            ++i;
            continue;
        }
        std::size_t good = 1;
        while (good < length && i + good < n) {
            const unsigned char c = at(i + good);
            const bool fits = good == 1 ? (c >= low && c <= high) : (c >= 0x80 && c <= 0xBF);
            if (!fits) break;
            ++good;
        }
        if (good == length) out.append(bytes.substr(i, length));
        else out += kReplacement;
        i += good;
    }
    return out;
}

}  // namespace orvane::ledger::internal
