// The process-seeded hasher behind SpaceItem's hash and the topMostByPath memo key.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <string_view>

namespace orvane::scan::internal {

// A random seed drawn once per process: keys made from it mean nothing outside the process, and
// a file name cannot be chosen to collide with another one's key.
inline std::uint64_t processSeed() {
    static const std::uint64_t seed = [] {
        std::uint64_t s =
            static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        try {
            std::random_device device;
            s ^= (static_cast<std::uint64_t>(device()) << 32) ^ device();
        } catch (...) {
            // No entropy source: the clock alone still varies between runs.
        }
        return s;
    }();
    return seed;
}

// Streams values into 64 bits. Strings carry their length, so that ("ab", "c") and ("a", "bc")
// feed different streams.
class Hasher {
  public:
    Hasher() : state_(processSeed()) {}

    void combine(std::uint64_t value) { state_ = mix(state_ ^ value); }
    void combine(std::int64_t value) { combine(static_cast<std::uint64_t>(value)); }
    void combine(bool value) { combine(std::uint64_t{value ? 1u : 0u}); }
    // Long texts are the bulk of a memo key (20,000 paths per scan), so their words go through a
    // one-multiply step and only the text as a whole through the full mix.
    void combine(std::string_view text) {
        std::uint64_t lane = state_ ^ (static_cast<std::uint64_t>(text.size()) * 0x9E3779B97F4A7C15ULL);
        std::size_t i = 0;
        for (; i + 8 <= text.size(); i += 8) {
            std::uint64_t word = 0;
            std::memcpy(&word, text.data() + i, 8);
            lane = rotate((lane ^ word) * 0xFF51AFD7ED558CCDULL, 31);
        }
        if (i < text.size()) {
            std::uint64_t word = 0;
            std::memcpy(&word, text.data() + i, text.size() - i);
            lane = rotate((lane ^ word) * 0xFF51AFD7ED558CCDULL, 31);
        }
        state_ = mix(lane);
    }

    std::uint64_t finalize() const { return mix(state_ + 0x9E3779B97F4A7C15ULL); }

  private:
    static std::uint64_t rotate(std::uint64_t x, int bits) { return (x << bits) | (x >> (64 - bits)); }

    // splitmix64's finaliser: every input bit reaches every output bit.
    static std::uint64_t mix(std::uint64_t x) {
        x += 0x9E3779B97F4A7C15ULL;
        x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
        x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
        return x ^ (x >> 31);
    }

    std::uint64_t state_;
};

}  // namespace orvane::scan::internal
