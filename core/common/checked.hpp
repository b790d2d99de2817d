// Byte arithmetic that cannot wrap: an overflow is a programming fault, so it aborts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace orvane {

[[noreturn]] inline void byteOverflow() {
    std::fputs("orvane: byte count overflow\n", stderr);
    std::abort();
}

inline std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) byteOverflow();
    return sum;
}

inline std::int64_t checkedSub(std::int64_t a, std::int64_t b) {
    std::int64_t difference = 0;
    if (__builtin_sub_overflow(a, b, &difference)) byteOverflow();
    return difference;
}

inline std::int64_t checkedMul(std::int64_t a, std::int64_t b) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product)) byteOverflow();
    return product;
}

}  // namespace orvane
