#include "core/common/text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace orvane {
namespace {

// Decodes one code point at `i`; an undecodable byte reads as -1 with length 1.
std::pair<utf8proc_int32_t, std::size_t> decodeAt(std::string_view text, std::size_t i) {
    utf8proc_int32_t cp = -1;
    auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                              static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
    if (n <= 0) return {-1, 1};
    return {cp, static_cast<std::size_t>(n)};
}

// Byte offset just past the first `limit` grapheme clusters.
std::size_t clusterEnd(std::string_view text, std::size_t limit, std::size_t* counted) {
    std::size_t clusters = 0;
    std::size_t i = 0;
    utf8proc_int32_t previous = -1;
    utf8proc_int32_t state = 0;
    while (i < text.size()) {
        auto [cp, len] = decodeAt(text, i);
        bool breaks = previous < 0 || cp < 0 || utf8proc_grapheme_break_stateful(previous, cp, &state);
        if (breaks) {
            if (clusters == limit) break;
            ++clusters;
        }
        previous = cp;
        if (cp < 0) state = 0;
        i += len;
    }
    if (counted) *counted = clusters;
    return i;
}

bool isWhite(utf8proc_int32_t cp) {
    switch (cp) {
        case 0x09: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x20: case 0x85: case 0xA0:
        case 0x1680: case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000:
            return true;
        default:
            return cp >= 0x2000 && cp <= 0x200A;
    }
}

}  // namespace

std::string L(std::string_view /*key*/, std::string_view defaultText) {
    return std::string(defaultText);
}

bool isValidUTF8(std::string_view text) {
    // Tool output is mostly ASCII and can be large: skip eight plain bytes at a time.
    const std::size_t n = text.size();
    for (std::size_t i = 0; i < n;) {
        if (i + 8 <= n) {
            std::uint64_t word;
            std::memcpy(&word, text.data() + i, 8);
            if ((word & 0x8080808080808080ULL) == 0) {
                i += 8;
                continue;
            }
        }
        if (static_cast<unsigned char>(text[i]) < 0x80) {
            ++i;
            continue;
        }
        auto [cp, len] = decodeAt(text, i);
        if (cp < 0) return false;
        i += len;
    }
    return true;
}

std::string nfc(std::string_view text) {
    if (text.empty() || !isValidUTF8(text)) return std::string(text);
    utf8proc_uint8_t* out = nullptr;
    auto n = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                          static_cast<utf8proc_ssize_t>(text.size()), &out,
                          static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(out, &std::free);
    if (n < 0) return std::string(text);
    return std::string(reinterpret_cast<const char*>(out), static_cast<std::size_t>(n));
}

std::size_t characterCount(std::string_view text) {
    // Plain ASCII without a carriage return has one character per byte: paths nearly always.
    if (std::none_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0x80 || c == '\r'; }))
        return text.size();
    std::size_t counted = 0;
    clusterEnd(text, static_cast<std::size_t>(-1), &counted);
    return counted;
}

std::string clipCharacters(std::string_view text, std::size_t limit) {
    return std::string(text.substr(0, clusterEnd(text, limit, nullptr)));
}

std::string_view trimSpacesAndTabs(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string trimWhitespace(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        auto [cp, len] = decodeAt(text, begin);
        if (cp < 0 || !isWhite(cp)) break;
        begin += len;
    }
    std::size_t end = text.size();
    while (end > begin) {
        // Step back to the start of the last code point.
        std::size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
        auto [cp, len] = decodeAt(text, start);
        if (cp < 0 || start + len != end || !isWhite(cp)) break;
        end = start;
    }
    return std::string(text.substr(begin, end - begin));
}

std::string lowercased(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        // Most names are ASCII; the Unicode tables are for the rest.
        if (const auto c = static_cast<unsigned char>(text[i]); c < 0x80) {
            out += static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
            ++i;
            continue;
        }
        auto [cp, len] = decodeAt(text, i);
        if (cp < 0) {
            out += text[i];
        } else {
            utf8proc_uint8_t buffer[4];
            auto n = utf8proc_encode_char(utf8proc_tolower(cp), buffer);
            out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
        }
        i += len;
    }
    return out;
}

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    std::size_t cluster = 0;  // the widest code point of the character being read
    utf8proc_int32_t previous = -1;
    utf8proc_int32_t state = 0;
    for (std::size_t i = 0; i < text.size();) {
        auto [cp, len] = decodeAt(text, i);
        const bool breaks = previous < 0 || cp < 0 || utf8proc_grapheme_break_stateful(previous, cp, &state);
        if (breaks) {
            width += cluster;
            cluster = 0;
        }
        const std::size_t own = cp < 0 ? 1 : static_cast<std::size_t>(std::max(0, utf8proc_charwidth(cp)));
        cluster = std::max(cluster, own);
        previous = cp;
        if (cp < 0) state = 0;
        i += len;
    }
    return width + cluster;
}

std::string escapeControlCharacters(std::string_view text) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    auto escapeBytes = [&](std::size_t from, std::size_t count) {
        for (std::size_t k = from; k < from + count; ++k) {
            const auto byte = static_cast<unsigned char>(text[k]);
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
        }
    };
    for (std::size_t i = 0; i < text.size();) {
        auto [cp, len] = decodeAt(text, i);
        if (cp == '\n') out += "\\n";
        else if (cp == '\r') out += "\\r";
        else if (cp == '\t') out += "\\t";
        else if (cp < 0 || cp < 0x20 || (cp >= 0x7F && cp <= 0x9F) || cp == 0x2028 || cp == 0x2029)
            escapeBytes(i, len);
        else out.append(text, i, len);
        i += len;
    }
    return out;
}

}  // namespace orvane

namespace orvane {

namespace {

// Case-folded and compatibility-decomposed, so that "Ａ" and "a" or "ß" and "ss" meet; text that is
// not UTF-8 is compared as it stands, lower-cased.
std::string folded(std::string_view text) {
    utf8proc_uint8_t* out = nullptr;
    const auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_COMPOSE |
                                                        UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
    const auto n = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                static_cast<utf8proc_ssize_t>(text.size()), &out, options);
    if (n < 0) return lowercased(text);
    std::string result(reinterpret_cast<const char*>(out), static_cast<std::size_t>(n));
    std::free(out);
    return result;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::vector<std::string> splitKeepingEmpties(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    for (std::size_t start = 0;;) {
        const auto end = text.find(separator, start);
        pieces.emplace_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) return pieces;
        start = end + 1;
    }
}

std::vector<std::string> splitDroppingEmpties(std::string_view text, char separator) {
    auto pieces = splitKeepingEmpties(text, separator);
    std::erase_if(pieces, [](const std::string& piece) { return piece.empty(); });
    return pieces;
}

std::string uppercasedFirstCharacter(std::string_view text) {
    if (text.empty()) return {};
    const auto [cp, len] = decodeAt(text, 0);
    if (cp < 0) return std::string(text);
    utf8proc_uint8_t buffer[4];
    const auto n = utf8proc_encode_char(utf8proc_toupper(cp), buffer);
    return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n)) + std::string(text.substr(len));
}

bool localizedCaseInsensitiveContains(std::string_view text, std::string_view query) {
    if (query.empty()) return false;
    return folded(text).find(folded(query)) != std::string::npos;
}

int localizedStandardCompare(std::string_view a, std::string_view b) {
    const std::string x = folded(a), y = folded(b);
    std::size_t i = 0, j = 0;
    while (i < x.size() && j < y.size()) {
        if (isDigit(x[i]) && isDigit(y[j])) {
            std::size_t ei = i, ej = j;
            while (ei < x.size() && isDigit(x[ei])) ++ei;
            while (ej < y.size() && isDigit(y[ej])) ++ej;
            // Leading zeros say nothing of the number; the longer run of what is left is larger.
            std::size_t si = i, sj = j;
            while (si + 1 < ei && x[si] == '0') ++si;
            while (sj + 1 < ej && y[sj] == '0') ++sj;
            if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
            if (const int c = x.compare(si, ei - si, y, sj, ej - sj); c != 0) return c < 0 ? -1 : 1;
            i = ei;
            j = ej;
            continue;
        }
        if (x[i] != y[j]) return static_cast<unsigned char>(x[i]) < static_cast<unsigned char>(y[j]) ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < x.size()) return 1;
    if (j < y.size()) return -1;
    return 0;
}

// Bytes as text, each ill-formed sequence replaced by U+FFFD as its maximal part that could have
// begun a character, the way the platform's decoder repairs.
std::string repairedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    while (i < bytes.size()) {
        const unsigned char lead = byte(i);
        std::size_t length = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (lead < 0x80)
            length = 1;
        else if (lead >= 0xC2 && lead <= 0xDF)
            length = 2;
        else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        }
        if (length == 0) {
            text += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        std::size_t taken = 1;
        while (taken < length && i + taken < bytes.size()) {
            const unsigned char next = byte(i + taken);
            const bool fits = taken == 1 ? (next >= low && next <= high) : (next >= 0x80 && next <= 0xBF);
            if (!fits) break;
            ++taken;
        }
        if (taken == length)
            text.append(bytes.substr(i, length));
        else
            text += "\xEF\xBF\xBD";
        i += taken;
    }
    return text;
}

}  // namespace orvane
