#include "core/duplicates/duplicate_scan.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

#include "core/common/fd.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/duplicates/content_hash.hpp"
#include "core/duplicates/digest.hpp"
#include "core/duplicates/keeper.hpp"

namespace orvane {

FileSig fileSigOf(const platform::FileFacts& facts) {
    return {facts.modifiedSeconds * 1'000'000'000 + facts.modifiedNanoseconds, facts.size};
}

namespace {

// What the walk keeps of one regular file that is not empty.
struct Candidate {
    std::string path;
    platform::FileFacts facts;
    int sameFileAs = -1;  // the index of the first path of this inode, for a hard link
    std::optional<std::string> hash;
};

struct FileKey {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileKey&) const = default;
};
struct FileKeyHash {
    std::size_t operator()(const FileKey& key) const { return std::hash<std::uint64_t>()(key.inode * 31 + key.device); }
};

struct Walk {
    const Facts& facts;
    const std::function<void(const std::string&)>& progress;
    std::vector<Candidate> files;
    std::int64_t regularFiles = 0;
    std::set<std::pair<std::uint64_t, std::uint64_t>> foldersSeen;
    std::unordered_map<FileKey, int, FileKeyHash> firstOfInode;
    std::set<std::string> pathsSeen;

    void addFile(const std::string& path, const platform::FileFacts& file) {
        ++regularFiles;
        if (progress && regularFiles % 20'000 == 0)
            progress("Looking through the files: " + std::to_string(regularFiles) + " so far…");
        if (file.size <= 0 || !pathsSeen.insert(path).second) return;
        Candidate candidate{path, file, -1, std::nullopt};
        const auto [first, added] = firstOfInode.emplace(FileKey{file.device, file.inode}, static_cast<int>(files.size()));
        if (!added) candidate.sameFileAs = first->second;
        files.push_back(std::move(candidate));
    }

    // Depth first, one folder listed at a time; a folder on another file system, or reached twice
    // (a bind mount, an overlapping root), is not entered.
    void walk(const std::string& root) {
        const auto top = facts.lstat(root);
        if (!top) return;
        if (top->isRegularFile()) return addFile(root, *top);
        if (!top->isDirectory() || !foldersSeen.insert({top->device, top->inode}).second) return;
        std::vector<std::string> pending = {root};
        while (!pending.empty()) {
            const std::string folder = std::move(pending.back());
            pending.pop_back();
            const auto entries = facts.list(folder);
            if (!entries) continue;
            for (const auto& entry : *entries) {
                if (entry.isLink) continue;
                const std::string path = appendingPathComponent(folder, entry.name);
                const auto file = facts.lstat(path);
                if (!file) continue;
                if (file->isDirectory()) {
                    if (file->device == top->device && foldersSeen.insert({file->device, file->inode}).second)
                        pending.push_back(path);
                } else if (file->isRegularFile()) {
                    addFile(path, *file);
                }
            }
        }
    }
};

using digest::Digest;
using digest::finishHex;

// The file a candidate names, opened without following a link and without waiting on a FIFO, and
// only while it is still the regular file of that size and time the walk saw: anything else
// leaves it out.
class OpenFile {
public:
    OpenFile(const Candidate& candidate, const Facts& facts) {
        const auto local = facts.localPath(candidate.path);
        if (!local) return;
        fd_ = Fd(::open(local->c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!fd_.open()) return;
        const auto now = platform::fstatFacts(fd_.get());
        if (!now || !now->isRegularFile() || fileSigOf(*now) != fileSigOf(candidate.facts)) fd_.reset();
    }

    bool isOpen() const { return fd_.open(); }

    // Exactly `want` bytes from `offset`, or false: a file that ends early has changed.
    bool readAt(std::int64_t offset, unsigned char* into, std::size_t want, std::atomic<std::int64_t>& counted) {
        std::size_t have = 0;
        while (have < want) {
            const ssize_t got = ::pread(fd_.get(), into + have, want - have, static_cast<off_t>(offset + have));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            have += static_cast<std::size_t>(got);
        }
        counted += static_cast<std::int64_t>(have);
        return have == want;
    }

private:
    Fd fd_;
};

// Bytes of a file kept in memory from its sample, so that the proof need not read them again.
// Buffers go back to their worker's pool: a fresh allocation of megabytes costs a page fault per
// page, more than the read itself.
struct Piece {
    std::int64_t offset = 0;
    std::int64_t length = 0;
    std::unique_ptr<unsigned char[]> bytes;
    std::size_t capacity = 0;
    std::int64_t end() const { return offset + length; }
};

// The sample blocks of a file above one block: at 0, at size/2 above two blocks, at size less a
// block.
std::vector<std::pair<std::int64_t, std::int64_t>> sampleBlocks(std::int64_t size) {
    std::vector<std::pair<std::int64_t, std::int64_t>> blocks = {{0, std::min(size, kSampleBlockBytes)}};
    if (size > 2 * kSampleBlockBytes) blocks.emplace_back(size / 2, std::min(size, size / 2 + kSampleBlockBytes));
    if (size > kSampleBlockBytes) blocks.emplace_back(size - kSampleBlockBytes, size);
    return blocks;
}

// The same blocks merged where they overlap, so that no byte is read twice.
std::vector<std::pair<std::int64_t, std::int64_t>> merged(std::vector<std::pair<std::int64_t, std::int64_t>> ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<std::pair<std::int64_t, std::int64_t>> out;
    for (const auto& range : ranges) {
        if (!out.empty() && range.first <= out.back().second) out.back().second = std::max(out.back().second, range.second);
        else out.push_back(range);
    }
    return out;
}

void feedFromPieces(EVP_MD_CTX* digest, const std::vector<Piece>& pieces, std::int64_t from, std::int64_t to) {
    for (const auto& piece : pieces) {
        if (piece.end() <= from || piece.offset >= to) continue;
        const std::int64_t start = std::max(from, piece.offset);
        const std::int64_t stop = std::min(to, piece.end());
        EVP_DigestUpdate(digest, piece.bytes.get() + (start - piece.offset), static_cast<std::size_t>(stop - start));
    }
}

// A file above one block between its sample and its proof.
struct Sampled {
    int index = -1;
    std::optional<std::string> sample;  // sampleHash, when the blocks were not kept
    std::vector<Piece> kept;            // the sample blocks, merged
};

// What a worker may keep of one size group's samples; past it the samples are digested and the
// proof reads those blocks again.
constexpr std::int64_t kKeptBytesPerWorker = 64 * 1024 * 1024;
// The proof reads what it does not hold in pieces that stay in the processor's cache between the
// read and the digest.
constexpr std::size_t kProofReadBytes = 1024 * 1024;

class Hasher {
public:
    Hasher(std::vector<Candidate>& files, const Facts& facts, std::atomic<std::int64_t>& bytesRead)
        : files_(files), facts_(facts), bytesRead_(bytesRead), chunk_(static_cast<std::size_t>(kSampleBlockBytes)) {}

    // Gives the files of one size that can be read their full digest.
    void proveSizeGroup(const std::vector<int>& group) {
        const std::int64_t size = files_[group.front()].facts.size;
        if (size <= kSampleBlockBytes) {
            for (int index : group) hashSmall(index);
            return;
        }
        const auto ranges = merged(sampleBlocks(size));
        std::int64_t sampleBytes = 0;
        for (const auto& [from, to] : ranges) sampleBytes += to - from;
        // When the group's samples do not all fit, they are compared by digest, and those that
        // fit are still kept for the proof.
        const bool byDigest = sampleBytes * static_cast<std::int64_t>(group.size()) > kKeptBytesPerWorker;
        std::int64_t keptBytes = 0;
        std::vector<Sampled> sampled;
        for (int index : group) {
            const bool keep = keptBytes + sampleBytes <= kKeptBytesPerWorker;
            Sampled one = keep ? keepSample(index, ranges) : digestSample(index, size);
            if (one.index < 0) continue;
            if (keep) keptBytes += sampleBytes;
            if (keep && byDigest) one.sample = digestOfKept(one, size);
            sampled.push_back(std::move(one));
        }
        // Files whose samples agree, by their bytes when held, else by their digests.
        std::vector<std::vector<Sampled*>> alike;
        for (auto& one : sampled) {
            auto same = std::find_if(alike.begin(), alike.end(), [&](const auto& bucket) { return sameSample(*bucket[0], one); });
            if (same == alike.end()) alike.push_back({&one});
            else same->push_back(&one);
        }
        for (const auto& bucket : alike)
            if (bucket.size() > 1)
                for (Sampled* one : bucket) prove(*one, size);
        for (auto& one : sampled)
            for (auto& piece : one.kept) giveBack(std::move(piece));
    }

private:
    // At most one block: its sample is its whole digest.
    void hashSmall(int index) {
        Candidate& file = files_[index];
        OpenFile open(file, facts_);
        if (!open.isOpen()) return;
        const auto size = static_cast<std::size_t>(file.facts.size);
        if (!open.readAt(0, chunk_.data(), size, bytesRead_)) return;
        Digest digest = digest::newSHA256();
        if (!digest) return;
        EVP_DigestUpdate(digest.get(), chunk_.data(), size);
        file.hash = finishHex(digest.get());
    }

    Piece piece(std::int64_t offset, std::int64_t length) {
        Piece out;
        // The smallest that fits, so that a block's buffer is not spent on a smaller block.
        auto best = pool_.end();
        for (auto it = pool_.begin(); it != pool_.end(); ++it)
            if (it->capacity >= static_cast<std::size_t>(length) && (best == pool_.end() || it->capacity < best->capacity))
                best = it;
        if (best != pool_.end()) {
            out = std::move(*best);
            pool_.erase(best);
        } else {
            out.capacity = static_cast<std::size_t>(length);
            out.bytes.reset(new unsigned char[out.capacity]);
        }
        out.offset = offset;
        out.length = length;
        return out;
    }

    // The pool holds no more than one size group may keep.
    void giveBack(Piece piece) {
        std::size_t pooled = piece.capacity;
        for (const auto& held : pool_) pooled += held.capacity;
        if (pooled <= static_cast<std::size_t>(kKeptBytesPerWorker)) pool_.push_back(std::move(piece));
    }

    Sampled keepSample(int index, const std::vector<std::pair<std::int64_t, std::int64_t>>& ranges) {
        OpenFile open(files_[index], facts_);
        if (!open.isOpen()) return {};
        Sampled one;
        for (const auto& [from, to] : ranges) {
            Piece held = piece(from, to - from);
            const bool read = open.readAt(from, held.bytes.get(), static_cast<std::size_t>(to - from), bytesRead_);
            one.kept.push_back(std::move(held));
            if (!read) {
                for (auto& back : one.kept) giveBack(std::move(back));
                return {};
            }
        }
        one.index = index;
        return one;
    }

    // sampleHash's digest of the blocks, read through the worker's one buffer.
    Sampled digestSample(int index, std::int64_t size) {
        OpenFile open(files_[index], facts_);
        Digest digest = digest::newSHA256();
        if (!open.isOpen() || !digest) return {};
        for (const auto& [from, to] : sampleBlocks(size)) {
            if (!open.readAt(from, chunk_.data(), static_cast<std::size_t>(to - from), bytesRead_)) return {};
            EVP_DigestUpdate(digest.get(), chunk_.data(), static_cast<std::size_t>(to - from));
        }
        return {index, finishHex(digest.get()), {}};
    }

    static std::string digestOfKept(const Sampled& one, std::int64_t size) {
        Digest digest = digest::newSHA256();
        if (!digest) return {};  // no digest to be had: the proof decides
        for (const auto& [from, to] : sampleBlocks(size)) feedFromPieces(digest.get(), one.kept, from, to);
        return finishHex(digest.get());
    }

    static bool sameSample(const Sampled& a, const Sampled& b) {
        if (a.sample || b.sample) return a.sample == b.sample;
        for (std::size_t i = 0; i < a.kept.size(); ++i)
            if (std::memcmp(a.kept[i].bytes.get(), b.kept[i].bytes.get(), static_cast<std::size_t>(a.kept[i].length)) != 0)
                return false;
        return true;
    }

    // The digest of every byte: held pieces from memory, the rest read once.
    void prove(const Sampled& one, std::int64_t size) {
        Candidate& file = files_[one.index];
        OpenFile open(file, facts_);
        Digest digest = digest::newSHA256();
        if (!open.isOpen() || !digest) return;
        for (std::int64_t at = 0; at < size;) {
            std::int64_t nextHeld = size;
            const Piece* covering = nullptr;
            for (const auto& piece : one.kept) {
                if (piece.offset <= at && at < piece.end()) covering = &piece;
                else if (piece.offset > at) nextHeld = std::min(nextHeld, piece.offset);
            }
            if (covering) {
                feedFromPieces(digest.get(), one.kept, at, covering->end());
                at = covering->end();
                continue;
            }
            const auto want = static_cast<std::size_t>(std::min<std::int64_t>(nextHeld - at, kProofReadBytes));
            if (!open.readAt(at, chunk_.data(), want, bytesRead_)) return;
            EVP_DigestUpdate(digest.get(), chunk_.data(), want);
            at += static_cast<std::int64_t>(want);
        }
        file.hash = finishHex(digest.get());
    }

    std::vector<Candidate>& files_;
    const Facts& facts_;
    std::atomic<std::int64_t>& bytesRead_;
    std::vector<unsigned char> chunk_;
    std::vector<Piece> pool_;
};

// Both cores (or up to four) take the size groups largest first, so that the last big one does
// not start when the other worker has nothing left.
void proveAll(std::vector<std::vector<int>>& sizeGroups, std::vector<Candidate>& files, const Facts& facts,
              const DuplicateScanOptions& options, std::int64_t candidateBytes, std::atomic<std::int64_t>& bytesRead) {
    std::sort(sizeGroups.begin(), sizeGroups.end(), [&](const auto& a, const auto& b) {
        return files[a.front()].facts.size * static_cast<std::int64_t>(a.size()) >
               files[b.front()].facts.size * static_cast<std::int64_t>(b.size());
    });
    unsigned threads = options.threads;
    if (threads == 0) threads = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
    threads = std::min<unsigned>(threads, static_cast<unsigned>(std::max<std::size_t>(sizeGroups.size(), 1)));

    std::atomic<std::size_t> next = 0;
    std::mutex lock;
    std::condition_variable finished;
    unsigned running = threads;
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            Hasher hasher(files, facts, bytesRead);
            for (std::size_t i; (i = next++) < sizeGroups.size();) hasher.proveSizeGroup(sizeGroups[i]);
            std::lock_guard guard(lock);
            if (--running == 0) finished.notify_all();
        });
    {
        std::unique_lock guard(lock);
        while (!finished.wait_for(guard, std::chrono::milliseconds(250), [&] { return running == 0; }))
            if (options.progress)
                options.progress("Comparing contents: " + fmtBytes(bytesRead.load()) + " of " + fmtBytes(candidateBytes) +
                                 " read…");
    }
    for (auto& worker : workers) worker.join();
}

}  // namespace

DuplicateFinding findDuplicates(const std::vector<std::string>& roots, const Facts& facts,
                                const DuplicateScanOptions& options) {
    const auto started = std::chrono::steady_clock::now();
    Walk walk{facts, options.progress, {}, 0, {}, {}, {}};
    for (const auto& root : roots) walk.walk(root);
    std::vector<Candidate>& files = walk.files;

    // Hard links are one file: only the first path of an inode is read, and a size is shared only
    // between different inodes.
    std::map<std::int64_t, std::vector<int>> bySize;
    for (int i = 0; i < static_cast<int>(files.size()); ++i)
        if (files[i].sameFileAs < 0) bySize[files[i].facts.size].push_back(i);
    std::vector<std::vector<int>> sizeGroups;
    DuplicateFinding finding;
    finding.stats.files = walk.regularFiles;
    for (auto& [size, group] : bySize) {
        if (group.size() < 2) continue;
        finding.stats.candidates += static_cast<std::int64_t>(group.size());
        finding.stats.candidateBytes += size * static_cast<std::int64_t>(group.size());
        sizeGroups.push_back(std::move(group));
    }
    std::atomic<std::int64_t> bytesRead = 0;
    proveAll(sizeGroups, files, facts, options, finding.stats.candidateBytes, bytesRead);
    finding.stats.bytesRead = bytesRead.load();

    std::map<std::pair<std::int64_t, std::string>, std::vector<int>> byContent;
    for (int i = 0; i < static_cast<int>(files.size()); ++i) {
        const Candidate& first = files[files[i].sameFileAs < 0 ? i : files[i].sameFileAs];
        if (first.hash) byContent[{first.facts.size, *first.hash}].push_back(i);
    }
    const std::string home = facts.home("");
    for (const auto& [content, members] : byContent) {
        std::set<int> inodes;
        for (int i : members) inodes.insert(files[i].sameFileAs < 0 ? i : files[i].sameFileAs);
        if (inodes.size() < 2) continue;  // one file under several names is no copy
        std::vector<std::string> paths;
        std::map<std::string, TimePoint> modified;
        DuplicateGroup group;
        group.size = content.first;
        group.hash = content.second;
        for (int i : members) {
            paths.push_back(files[i].path);
            modified[files[i].path] = TimePoint(std::chrono::seconds(files[i].facts.modifiedSeconds));
            group.sigs[files[i].path] = fileSigOf(files[i].facts);
        }
        std::vector<std::optional<std::int64_t>> starts;
        for (const auto& path : paths)
            starts.push_back(options.physicalStart ? options.physicalStart(path) : std::nullopt);
        group.claim = cloneAwareDupeClaim(group.size, starts);
        paths = orderByKeeper(std::move(paths), modified, home);
        group.keeper = paths.front();
        group.copies.assign(paths.begin() + 1, paths.end());
        group.reason = keeperReason(group.keeper, group.copies, home);
        finding.claim.copies += group.claim.copies;
        finding.claim.bytes += group.claim.bytes;
        finding.groups.push_back(std::move(group));
    }
    std::sort(finding.groups.begin(), finding.groups.end(), [](const DuplicateGroup& a, const DuplicateGroup& b) {
        if (a.claim.bytes != b.claim.bytes) return a.claim.bytes > b.claim.bytes;
        return a.keeper < b.keeper;
    });
    finding.stats.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return finding;
}

}  // namespace orvane
