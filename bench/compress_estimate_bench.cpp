// The compression estimate of a 1 GB selection (40 files of log text, JSON, random bytes and
// zeros) against compressing every byte with zlib at the same level, in the same run; and how far
// the estimate's "after" lies from the real compressed size.
//
//     compress_estimate_bench [--benchmark_filter=...]   (files in /var/tmp/orvane-bench/compress)
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "core/relocation/compact_estimate.hpp"
#include "core/relocation/internal/compact_estimate_cache.hpp"

namespace {

namespace fs = std::filesystem;
using namespace orvane;

constexpr const char* kFolder = "/var/tmp/orvane-bench/compress";
constexpr int kFiles = 40;
constexpr std::int64_t kTotal = 1'000'000'000;

std::string chunkOf(int kind, std::mt19937& random, std::size_t size) {
    std::string out;
    out.reserve(size + 256);
    char line[256];
    const auto next = [&random] { return static_cast<unsigned>(random()); };
    while (out.size() < size) {
        int n = 0;
        switch (kind) {
            case 0:
                n = std::snprintf(line, sizeof line,
                                  "2026-11-%02u 0%u:%02u:%02u.%03u INFO worker-%u request id=%08x path=/api/v1/items/%u "
                                  "status=%u ms=%u\n",
                                  1 + next() % 28, next() % 10, next() % 60, next() % 60, next() % 1000,
                                  next() % 32, next(), next() % 100000, next() % 2 ? 200u : 404u,
                                  next() % 900);
                break;
            case 1:
                n = std::snprintf(line, sizeof line,
                                  "{\"id\":%u,\"name\":\"item-%u\",\"tags\":[\"t%u\",\"t%u\"],\"price\":%u.%02u,"
                                  "\"active\":%s},\n",
                                  next(), next() % 100000, next() % 50, next() % 50, next() % 1000,
                                  next() % 100, next() % 2 ? "true" : "false");
                break;
            case 2:
                for (int i = 0; i < 64; i += 4) {
                    const std::uint32_t word = next();
                    std::memcpy(line + i, &word, 4);
                }
                n = 64;
                break;
            default:
                std::memset(line, 0, 64);
                n = 64;
        }
        out.append(line, static_cast<std::size_t>(n));
    }
    out.resize(size);
    return out;
}

// The selection, written once and reused while its sizes still match.
std::vector<SpaceItem>& selection() {
    static std::vector<SpaceItem> items = [] {
        std::mt19937 random(11);
        std::vector<std::int64_t> sizes;
        double weights = 0;
        std::vector<double> weight;
        for (int i = 0; i < kFiles; ++i) weight.push_back(15.0 + static_cast<double>(random() % 21)), weights += weight.back();
        std::int64_t left = kTotal;
        for (int i = 0; i < kFiles; ++i) {
            sizes.push_back(i + 1 == kFiles ? left : static_cast<std::int64_t>(static_cast<double>(kTotal) * weight[i] / weights));
            left -= sizes.back();
        }
        fs::create_directories(kFolder);
        std::vector<SpaceItem> made;
        for (int i = 0; i < kFiles; ++i) {
            const std::string path = std::string(kFolder) + "/file" + std::to_string(i) + (i % 4 == 0 ? ".log" : i % 4 == 1 ? ".json" : i % 4 == 2 ? ".bin" : ".zero");
            std::error_code error;
            if (fs::file_size(path, error) != static_cast<std::uintmax_t>(sizes[i])) {
                std::ofstream out(path, std::ios::binary | std::ios::trunc);
                for (std::int64_t written = 0; written < sizes[i];) {
                    const auto size = static_cast<std::size_t>(std::min<std::int64_t>(sizes[i] - written, 8 << 20));
                    out << chunkOf(i % 4, random, size);
                    written += static_cast<std::int64_t>(size);
                }
            }
            struct stat st{};
            ::lstat(path.c_str(), &st);
            SpaceItem item;
            item.id = path;
            item.sizeBytes = static_cast<std::int64_t>(st.st_blocks) * 512;
            made.push_back(item);
        }
        return made;
    }();
    return items;
}

std::int64_t realCompressed = 0;  // set by the run over every byte

void BM_ZlibEveryByte(benchmark::State& state) {
    const auto& items = selection();
    std::vector<unsigned char> input(1 << 20), output(1 << 20);
    for (auto _ : state) {
        std::int64_t total = 0;
        for (const auto& item : items) {
            z_stream stream{};
            deflateInit2(&stream, 5, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
            const int fd = ::open(item.id.c_str(), O_RDONLY | O_CLOEXEC);
            for (;;) {
                const ssize_t got = ::read(fd, input.data(), input.size());
                stream.next_in = input.data();
                stream.avail_in = got > 0 ? static_cast<uInt>(got) : 0;
                const int flush = got > 0 ? Z_NO_FLUSH : Z_FINISH;
                do {
                    stream.next_out = output.data();
                    stream.avail_out = static_cast<uInt>(output.size());
                    deflate(&stream, flush);
                } while (stream.avail_out == 0);
                if (flush == Z_FINISH) break;
            }
            ::close(fd);
            total += static_cast<std::int64_t>(stream.total_out);
            deflateEnd(&stream);
        }
        realCompressed = total;
    }
    state.counters["compressedMB"] = static_cast<double>(realCompressed) / 1e6;
}
BENCHMARK(BM_ZlibEveryByte)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

void BM_CompactEstimateLine(benchmark::State& state) {
    const auto& items = selection();
    CompactEstimate estimate;
    for (auto _ : state) {
        relocation::internal::forgetCompactEstimates();  // measure the compression, not the memory
        estimate = compactEstimate(items);
    }
    const std::int64_t percent = estimate.percent.value_or(0);
    const double after = static_cast<double>(estimate.total - estimate.total * percent / 100);
    state.counters["percent"] = static_cast<double>(percent);
    state.counters["afterMB"] = after / 1e6;
    if (realCompressed > 0)
        state.counters["errorPercent"] = (after - static_cast<double>(realCompressed)) / static_cast<double>(realCompressed) * 100;
}
BENCHMARK(BM_CompactEstimateLine)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
