// Prints the full digest of each file named, as `openssl dgst -sha256` does, so that the two can
// be timed against each other on the same file in one run (bench/dupes_vs_peers).
#include <cstdio>

#include "core/duplicates/content_hash.hpp"

int main(int argc, char** argv) {
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        const auto digest = orvane::fullHash(argv[i]);
        if (!digest) {
            std::fprintf(stderr, "full_hash: %s cannot be opened\n", argv[i]);
            status = 1;
            continue;
        }
        std::printf("%s  %s\n", digest->c_str(), argv[i]);
    }
    return status;
}
