#include "core/duplicates/content_hash.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "core/duplicates/digest.hpp"

namespace orvane {

namespace {

using digest::Digest;
using digest::finishHex;

// One read of up to `want` bytes, resumed after a signal; what a short read leaves is not
// chased, since a read error of the middle ends nothing either.
ssize_t readSome(int fd, unsigned char* into, std::size_t want) {
    ssize_t got;
    do got = ::read(fd, into, want);
    while (got < 0 && errno == EINTR);
    return got;
}

// Fills up to `want` bytes, as a file handle's read does: several reads when the kernel gives
// less, stopping at the end or at an error.
std::size_t readUpTo(int fd, unsigned char* into, std::size_t want) {
    std::size_t have = 0;
    while (have < want) {
        const ssize_t got = readSome(fd, into + have, want - have);
        if (got <= 0) break;
        have += static_cast<std::size_t>(got);
    }
    return have;
}

}  // namespace

std::optional<std::string> sampleHash(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    const off_t end = ::lseek(fd, 0, SEEK_END);
    const std::int64_t size = end < 0 ? 0 : static_cast<std::int64_t>(end);
    std::vector<std::int64_t> offsets = {0};
    if (size > 2 * kSampleBlockBytes) offsets.push_back(size / 2);
    if (size > kSampleBlockBytes) offsets.push_back(size - kSampleBlockBytes);

    Digest digest = digest::newSHA256();
    if (!digest) {
        ::close(fd);
        return std::nullopt;
    }
    std::vector<unsigned char> block(static_cast<std::size_t>(kSampleBlockBytes));
    for (std::int64_t offset : offsets) {
        ::lseek(fd, static_cast<off_t>(offset), SEEK_SET);  // a failed seek reads on from where it stands
        const std::size_t got = readUpTo(fd, block.data(), block.size());
        if (got > 0) EVP_DigestUpdate(digest.get(), block.data(), got);
    }
    ::close(fd);
    return finishHex(digest.get());
}

std::optional<std::string> fullHash(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    Digest digest = digest::newSHA256();
    if (!digest) {
        ::close(fd);
        return std::nullopt;
    }
    // One chunk per thread, kept: a fresh one per file costs a page fault for each of its pages,
    // more than reading a small file.
    thread_local std::vector<unsigned char> chunk(static_cast<std::size_t>(kFullHashChunkBytes));
    for (;;) {
        const ssize_t got = readSome(fd, chunk.data(), chunk.size());
        if (got <= 0) break;
        EVP_DigestUpdate(digest.get(), chunk.data(), static_cast<std::size_t>(got));
    }
    ::close(fd);
    return finishHex(digest.get());
}

}  // namespace orvane
