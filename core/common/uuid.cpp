#include "core/common/uuid.hpp"

#include <array>
#include <cstdint>
#include <random>

namespace orvane {

std::string freshUUID() {
    static thread_local std::mt19937_64 generator{std::random_device{}() ^
                                                  (static_cast<std::uint64_t>(std::random_device{}()) << 32)};
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        std::uint64_t word = generator();
        for (std::size_t k = 0; k < 8; ++k) bytes[i + k] = static_cast<unsigned char>(word >> (8 * k));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text.push_back(kHex[bytes[i] >> 4]);
        text.push_back(kHex[bytes[i] & 0x0F]);
    }
    return text;
}

}  // namespace orvane
