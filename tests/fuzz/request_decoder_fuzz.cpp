// The daemon's first contact with a peer's bytes: whatever arrives decodes or is refused, and
// what decodes encodes back to itself.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/privileged/protocol.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    auto decoded = orvane::decodeRequest(bytes);
    if (decoded.operation) {
        auto again = orvane::decodeRequest(orvane::encodeRequest(*decoded.operation));
        if (!again.operation || !(*again.operation == *decoded.operation)) std::abort();
        (void)decoded.operation->description();
    } else if (decoded.error.empty()) {
        std::abort();
    }
    return 0;
}
