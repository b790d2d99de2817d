// Thousands of damaged requests: the decoder answers each with an operation or an error, never
// a crash, and whatever it accepts survives a round trip unchanged.
#include <gtest/gtest.h>

#include <random>

#include "core/privileged/protocol.hpp"
#include "core/privileged/validation.hpp"

namespace orvane {
namespace {

const char* kSeeds[] = {
    R"({"removePath":{"_0":"/path"}})",
    R"({"swapToSymlink":{"original":"/path","target":"/other"}})",
    R"({"restoreFromStaging":{"staging":"/path","destination":"/other"}})",
    R"({"deleteSnapshots":{"_0":["2026-01-31-120000","2026-02-01-120000"]}})",
    R"({"thinSnapshots":{}})",
    R"({"moveAside":{"path":"/path","to":"/other","chownTo":501}})",
    R"({"privilegedScan":{"kind":"folder","root":"/path","label":"Name","outPath":"/other"}})",
    R"({"setLaunchItemEnabled":{"path":"/path","enabled":true}})",
    R"({"trashLaunchItem":{"path":"/path","to":"/other","chownTo":501}})",
    R"({"deleteTrashedApp":{"name":"Some.app"}})",
};

const std::string kAlphabet = "{}[]\":,0123456789-+.eE \\/u\x00\xff\xc3tfnrl_";

std::string mutate(std::string text, std::mt19937& rng) {
    std::uniform_int_distribution<int> kind(0, 5);
    int edits = 1 + static_cast<int>(rng() % 4);
    for (int e = 0; e < edits && !text.empty(); ++e) {
        std::size_t at = rng() % text.size();
        char c = kAlphabet[rng() % kAlphabet.size()];
        switch (kind(rng)) {
            case 0: text[at] = c; break;
            case 1: text.insert(text.begin() + static_cast<long>(at), c); break;
            case 2: text.erase(at, 1 + rng() % 3); break;
            case 3: text = text.substr(0, at); break;  // truncated
            case 4: text.insert(at, text.substr(at, rng() % 16)); break;  // repeated piece
            default: text.insert(at, kSeeds[rng() % std::size(kSeeds)]); break;
        }
    }
    return text;
}

TEST(DecoderMutation, NeverCrashesAndRoundTripsWhatItAccepts) {
    std::mt19937 rng(20260131);
    int accepted = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string request = mutate(kSeeds[i % std::size(kSeeds)], rng);
        auto decoded = decodeRequest(request);
        ASSERT_NE(decoded.operation.has_value(), !decoded.error.empty()) << request;
        if (!decoded.operation) continue;
        ++accepted;
        auto again = decodeRequest(encodeRequest(*decoded.operation));
        ASSERT_TRUE(again.operation) << request;
        EXPECT_EQ(*again.operation, *decoded.operation) << request;
        // Whatever decodes can be described and judged without touching anything.
        EXPECT_FALSE(decoded.operation->description().empty());
        (void)validate(*decoded.operation, "/nonexistent-home", 501u);
    }
    EXPECT_GT(accepted, 100);  // the mutations do reach the case decoders
}

}  // namespace
}  // namespace orvane
