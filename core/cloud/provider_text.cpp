#include "core/cloud/provider_text.hpp"

#include <utf8proc.h>

#include <algorithm>

#include "core/common/text.hpp"

namespace orvane {

namespace {

// Unicode's White_Space property.
bool isWhiteSpace(utf8proc_int32_t cp) {
    return (cp >= 0x09 && cp <= 0x0D) || cp == 0x20 || cp == 0x85 || cp == 0xA0 || cp == 0x1680 ||
           (cp >= 0x2000 && cp <= 0x200A) || cp == 0x2028 || cp == 0x2029 || cp == 0x202F || cp == 0x205F ||
           cp == 0x3000;
}

// Calls `each` with every scalar and its bytes; a byte that does not decode stands as U+FFFD.
template <typename Each>
void forEachScalar(std::string_view text, Each each) {
    static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    for (std::size_t i = 0; i < text.size();) {
        utf8proc_int32_t cp = -1;
        const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                                        static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
        if (n <= 0 || cp < 0) {
            each(0xFFFD, kReplacement);
            ++i;
            continue;
        }
        each(cp, text.substr(i, static_cast<std::size_t>(n)));
        i += static_cast<std::size_t>(n);
    }
}

}  // namespace

std::optional<std::string> sanitizedProviderText(const nlohmann::json& value, int limit) {
    if (!value.is_string()) return std::nullopt;
    std::string cleaned;
    forEachScalar(value.get_ref<const std::string&>(), [&](utf8proc_int32_t cp, std::string_view bytes) {
        if (utf8proc_category(cp) == UTF8PROC_CATEGORY_CC || cp == 0x7F)
            cleaned += ' ';
        else
            cleaned += bytes;
    });
    return sanitizedClamp(cleaned, limit);
}

std::optional<std::string> sanitizedClamp(std::string_view text, int limit) {
    std::string joined;
    bool pendingBlank = false;
    forEachScalar(text, [&](utf8proc_int32_t cp, std::string_view bytes) {
        if (isWhiteSpace(cp)) {
            pendingBlank = !joined.empty();
            return;
        }
        if (pendingBlank) joined += ' ';
        pendingBlank = false;
        joined += bytes;
    });
    if (joined.empty()) return std::nullopt;
    const auto kept = static_cast<std::size_t>(std::max(limit, 0));
    if (characterCount(joined) <= kept) return joined;
    return clipCharacters(joined, static_cast<std::size_t>(std::max(limit - 1, 1))) + "…";
}

}  // namespace orvane
