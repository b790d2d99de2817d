#include "core/relocation/compact_estimate.hpp"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "core/common/checked.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/platform/platform.hpp"
#include "core/relocation/internal/compact_estimate_cache.hpp"

namespace orvane {
namespace relocation::internal {
namespace {

constexpr std::size_t kCacheLimit = 512;
constexpr std::size_t kCacheDrop = 256;

struct EstimateCache {
    std::mutex lock;
    std::map<std::string, std::int64_t> values;
    std::deque<std::string> compactEstOrder;  // keys in order of arrival
};
EstimateCache& estimateCache() {
    static EstimateCache cache;
    return cache;
}

}  // namespace

std::string compactEstimateKey(const std::string& path, std::int64_t size) {
    return path + "|" + std::to_string(size);
}

std::optional<std::int64_t> cachedCompactEstimate(const std::string& key) {
    auto& cache = estimateCache();
    std::lock_guard guard(cache.lock);
    const auto found = cache.values.find(key);
    if (found == cache.values.end()) return std::nullopt;
    return found->second;
}

void rememberCompactEstimate(const std::string& key, std::int64_t value) {
    auto& cache = estimateCache();
    std::lock_guard guard(cache.lock);
    if (!cache.values.contains(key)) {
        if (cache.compactEstOrder.size() >= kCacheLimit) {
            for (std::size_t i = 0; i < kCacheDrop; ++i) {
                cache.values.erase(cache.compactEstOrder.front());
                cache.compactEstOrder.pop_front();
            }
        }
        cache.compactEstOrder.push_back(key);
    }
    cache.values[key] = value;
}

void forgetCompactEstimates() {
    auto& cache = estimateCache();
    std::lock_guard guard(cache.lock);
    cache.values.clear();
    cache.compactEstOrder.clear();
}

}  // namespace relocation::internal

namespace {

using relocation::internal::cachedCompactEstimate;
using relocation::internal::compactEstimateKey;
using relocation::internal::rememberCompactEstimate;

constexpr std::int64_t kSmallestEstimated = 4097;
constexpr std::int64_t kSampleBytes = 2'097'152;
constexpr std::int64_t kOneSampleUpTo = 6'291'456;
constexpr std::size_t kOutputBytes = 2'162'688;  // a sample that grows still fits
// Apple's LZFSE compresses about as tightly as zlib at level 5 (the level its own zlib codec
// uses), so that level stands for it where the platform's compressor is absent.
constexpr int kZlibLevel = 5;
constexpr std::size_t kIncompressibleLimit = 2000;
constexpr std::string_view kIncompressibleDefault = "ov.incompressible";

// Raw deflate into `output`: the compressed length, or 0 when it fails or does not fit, as the
// platform's buffer encoder answers.
std::size_t compressInto(z_stream& stream, unsigned char* input, std::size_t length, unsigned char* output) {
    if (::deflateReset(&stream) != Z_OK) return 0;
    stream.next_in = input;
    stream.avail_in = static_cast<uInt>(length);
    stream.next_out = output;
    stream.avail_out = static_cast<uInt>(kOutputBytes);
    return ::deflate(&stream, Z_FINISH) == Z_STREAM_END ? static_cast<std::size_t>(stream.total_out) : 0;
}

// Up to `length` bytes at `offset`; 0 at the end of the file or on an error.
std::size_t readAt(int fd, unsigned char* buffer, std::size_t length, std::int64_t offset) {
    std::size_t filled = 0;
    while (filled < length) {
        const ssize_t got = ::pread(fd, buffer + filled, length - filled, static_cast<off_t>(offset) + static_cast<off_t>(filled));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return 0;
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

std::string countedFiles(std::size_t sample, std::int64_t files) {
    return "Sampled " + std::to_string(sample) + " of these " + std::to_string(files) + " files just now: ";
}

}  // namespace

std::optional<std::int64_t> sampledCompactBytes(const std::string& path, std::int64_t size) {
    if (size < kSmallestEstimated) return std::nullopt;
    const std::string key = compactEstimateKey(path, size);
    if (const auto cached = cachedCompactEstimate(key)) return cached;

    RegularFile file(path);
    if (!file.isOpen()) return std::nullopt;
    std::vector<std::int64_t> offsets = {0};
    if (size > kOneSampleUpTo) offsets = {0, size / 2, size - kSampleBytes};

    std::unique_ptr<unsigned char[]> input(new (std::nothrow) unsigned char[kSampleBytes]);
    std::unique_ptr<unsigned char[]> output(new (std::nothrow) unsigned char[kOutputBytes]);
    if (!input || !output) return std::nullopt;
    z_stream stream{};
    if (::deflateInit2(&stream, kZlibLevel, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return std::nullopt;

    std::int64_t sampled = 0, compressed = 0;
    for (const std::int64_t offset : offsets) {
        const std::size_t read = readAt(file.fd(), input.get(), kSampleBytes, offset);
        if (read == 0) continue;
        const std::size_t packed = compressInto(stream, input.get(), read, output.get());
        sampled += static_cast<std::int64_t>(read);
        // A sample that does not shrink would be stored as it is.
        compressed += static_cast<std::int64_t>(packed != 0 && packed < read ? packed : read);
    }
    ::deflateEnd(&stream);
    if (sampled < 1) return std::nullopt;

    const auto estimate = static_cast<std::int64_t>(static_cast<double>(size) * static_cast<double>(compressed) /
                                                    static_cast<double>(sampled));
    rememberCompactEstimate(key, estimate);
    return estimate;
}

namespace {

// Compressing is nearly all of an estimate's time, and the files are independent: they are shared
// among up to four threads, each answer kept in its file's place.
void estimateEach(std::vector<CompactEstimate::Sampled>& sample) {
    const std::size_t workers =
        std::min<std::size_t>({sample.size(), std::max(1u, std::thread::hardware_concurrency()), 4});
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < sample.size(); i = next++)
            sample[i].estimate = sampledCompactBytes(sample[i].item.id, sample[i].item.sizeBytes);
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < workers; ++i) threads.emplace_back(work);
    work();
    for (auto& thread : threads) thread.join();
}

}  // namespace

std::vector<SpaceItem> compactEstimateSample(const std::vector<SpaceItem>& items) {
    std::vector<SpaceItem> sorted = items;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const SpaceItem& a, const SpaceItem& b) { return a.sizeBytes > b.sizeBytes; });
    if (sorted.size() <= compactEstimateSampleLimit) return sorted;
    std::vector<SpaceItem> sample;
    const double step = static_cast<double>(sorted.size()) / static_cast<double>(compactEstimateSampleLimit);
    for (std::size_t i = 0; i < compactEstimateSampleLimit; ++i) {
        const auto index = std::min(static_cast<std::size_t>(step * static_cast<double>(i)), sorted.size() - 1);
        sample.push_back(sorted[index]);
    }
    return sample;
}

CompactEstimate compactEstimate(const std::vector<SpaceItem>& items) {
    CompactEstimate estimate;
    std::vector<SpaceItem> files;
    for (const auto& item : items) {
        estimate.total = checkedAdd(estimate.total, std::max<std::int64_t>(item.sizeBytes, 0));
        if (!item.isDir && item.sizeBytes >= 1) files.push_back(item);
    }
    estimate.files = static_cast<std::int64_t>(files.size());
    for (auto& item : compactEstimateSample(files)) estimate.sample.push_back({std::move(item), std::nullopt});
    estimateEach(estimate.sample);
    for (const auto& sampled : estimate.sample) {
        if (!sampled.estimate) continue;
        estimate.sampled = checkedAdd(estimate.sampled, sampled.item.sizeBytes);
        estimate.estimated = checkedAdd(estimate.estimated, *sampled.estimate);
    }
    if (estimate.sampled < 1 || estimate.total < 1) {
        estimate.line = "\n\nBest for old, rarely-touched data; already-compressed media saves little.";
        return estimate;
    }
    const auto percent = static_cast<std::int64_t>(static_cast<double>(estimate.sampled - estimate.estimated) /
                                                   static_cast<double>(estimate.sampled) * 100);
    estimate.percent = percent;
    const bool everything = estimate.sample.size() >= files.size();
    if (percent > 4) {
        // total × percent / 100 without the product, which could pass the 64-bit range.
        const std::int64_t saved = estimate.total / 100 * percent + estimate.total % 100 * percent / 100;
        const std::int64_t after = estimate.total - saved;
        const std::string head = everything && estimate.sampled == estimate.total ? "Sampled just now: expect about"
                                 : everything ? "Sampled " + fmtBytes(estimate.sampled) + " of it just now: expect about"
                                              : countedFiles(estimate.sample.size(), estimate.files) + "expect about";
        estimate.line = "\n\n" + head + " " + fmtBytes(after) + " after — around " + fmtBytes(saved) + " back (~" +
                        std::to_string(percent) + "%). The exact figure is measured as it runs.";
    } else if (everything) {
        estimate.line = "\n\nSampled just now: this data barely compresses — expect little to no saving.";
    } else {
        estimate.line = "\n\n" + countedFiles(estimate.sample.size(), estimate.files) +
                        "this data barely compresses — expect little to no saving.";
    }
    return estimate;
}

std::string compactEstimateLine(const std::vector<SpaceItem>& items) { return compactEstimate(items).line; }

std::optional<std::string> incompressibleKey(const std::string& path) {
    const auto facts = platform::lstatFacts(path);
    if (!facts) return std::nullopt;
    return path + "|" + std::to_string(facts->size) + "|" + std::to_string(facts->modifiedSeconds);
}

std::vector<std::string> incompressibleKeys() {
    std::vector<std::string> keys;
    const auto stored = userDefault(kIncompressibleDefault);
    if (!stored || !stored->is_array()) return keys;
    for (const auto& value : *stored)
        if (value.is_string()) keys.push_back(value.get<std::string>());
    return keys;
}

void rememberIncompressible(const std::string& path) {
    const auto key = incompressibleKey(path);
    if (!key) return;
    // The read and the write are one change, or two callers would each drop the other's key.
    static std::mutex listLock;
    std::lock_guard guard(listLock);
    std::vector<std::string> keys = incompressibleKeys();
    if (std::find(keys.begin(), keys.end(), *key) != keys.end()) return;
    keys.push_back(*key);
    if (keys.size() > kIncompressibleLimit)
        keys.erase(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(keys.size() - kIncompressibleLimit));
    setUserDefault(kIncompressibleDefault, keys);
}

}  // namespace orvane
